#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/httpd_wrapper/failure.h"
#include "host/debian/tessel_host/checks.h"
#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/network/host_names.h"

namespace tessel {

namespace {

constexpr size_t kLongestReason = 100'000;
constexpr std::int64_t kAsksForPassword = 401;

// Its lines in one.
std::string oneLine(std::string_view text) {
  std::string line;
  for (const char c : trimmed(text)) {
    line += c == '\n' ? std::string("; ") : std::string(1, c);
  }
  return shown(line);
}

bool isApache(const std::string& holder) {
  pid_t process = 0;
  (void)std::from_chars(holder.data(), holder.data() + holder.size(), process);
  const auto name =
      FileManager().readFile("/proc/" + std::to_string(process) + "/cmdline", kLongestReason);
  return name && name->starts_with("/usr/sbin/apache2");
}

// Where the name leads clients. Nothing is made of a place that does not answer: many a router lets
// nobody in who asks from within, and what this machine is told may not be what others are told.
void checkName(const Service& service, Findings& findings) {
  constexpr std::chrono::seconds kPatienceAfar{5};
  const std::vector<std::string> addresses = addressesOf(service.name);
  if (addresses.empty()) {
    warn(findings, kSettingsFile,
         "this machine finds no address for the name " + shown(service.name) +
             ", so clients may not find it either",
         "Add the name to DNS or /etc/hosts, or correct ServerName");
    return;
  }
  if (std::any_of(addresses.begin(), addresses.end(), isAddressOfThisHost)) return;
  const auto answer = askServiceAt(service, addresses.front(), kPatienceAfar);
  if (!answer || answer->status == kAsksForPassword) return;
  warn(findings, kSettingsFile,
       "the name " + shown(service.name) + " leads to " + addresses.front() +
           ", where something else answers than Tessel: status " + std::to_string(answer->status),
       "Correct the name's address in DNS or /etc/hosts, or ServerName");
}

}  // namespace

std::optional<HTTPAnswer> checkAnswer(const Service& service, Findings& findings) {
  const std::string where = "port " + service.port;
  checkName(service, findings);
  const auto reason = FileManager().readFile(kReasonFile, kLongestReason);
  if (reason && !trimmed(*reason).empty()) {
    notServing(findings, where, "Apache runs without Tessel: " + oneLine(*reason),
               "Mend that, then run: tesselctl start");
    return std::nullopt;
  }
  auto answer = askService(service);
  if (answer && answer->status == kAsksForPassword) return *std::move(answer);

  bool isTaken = false;
  for (const std::string& holder : portHolders(service.port)) {
    if (isApache(holder)) continue;
    notServing(findings, where, "it is taken by process " + shown(holder),
               "End that program, or set another ServerPort in " + std::string(kSettingsFile) +
                   ", then run: tesselctl start");
    isTaken = true;
  }
  if (isTaken) return std::nullopt;
  if (!isApacheRunning()) {
    notServing(findings, where, "Apache is not running",
               "Run: tesselctl start (its reasons are in /var/log/apache2/error.log)");
    return std::nullopt;
  }
  notServing(findings, where,
             answer ? "it is not Tessel that answers, or not as it should: status " +
                          std::to_string(answer->status) + " where a password is to be asked for"
                    : "there is no answer: " + oneLine(answer.error().description),
             "Run: tesselctl start (its reasons are in /var/log/apache2/tessel_error.log)");
  return std::nullopt;
}

}  // namespace tessel
