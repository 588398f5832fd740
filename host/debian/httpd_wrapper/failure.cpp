#include "host/debian/httpd_wrapper/failure.h"

#include <array>
#include <sstream>
#include <string_view>
#include <vector>

#include "platform/base/text.h"
#include "platform/process/program.h"

namespace tessel {

namespace {

// A warning that every start without a server name has, and what only follows from the reason.
constexpr std::array<std::string_view, 4> kNoise{"AH00558", "AH00015", "no listening sockets",
                                                 "AH00016"};

bool isNoise(std::string_view line) {
  for (const std::string_view noise : kNoise) {
    if (line.find(noise) != std::string_view::npos) return true;
  }
  return trimmed(std::string(line)).empty();
}

// One line for each program that listens on the port: its name, process and user as ss(8) and ps(1)
// have them.
std::string holders(const std::string& port) {
  const auto sockets = captureProgram("/bin/ss", {"-Hltnp", "sport = :" + port});
  if (!sockets || sockets->standardOutput.empty()) return "";
  std::string processes;
  constexpr std::string_view kProcess = "pid=";
  const std::string& text = sockets->standardOutput;
  for (size_t at = text.find(kProcess); at != std::string::npos; at = text.find(kProcess, at)) {
    at += kProcess.size();
    const std::string process = text.substr(at, text.find_first_not_of("0123456789", at) - at);
    if (processes.find(process) != std::string::npos) continue;
    processes += (processes.empty() ? "" : ",") + process;
  }
  if (processes.empty()) return "\nThe port is taken by a program that root cannot see from here";
  const auto listing = captureProgram("/bin/ps", {"-o", "pid=,user=,args=", "-p", processes});
  if (!listing) return "";
  std::string lines;
  std::istringstream rows(listing->standardOutput);
  for (std::string row; std::getline(rows, row);)
    lines += "\nThe port is taken by process " + trimmed(row);
  return lines;
}

}  // namespace

std::string failureReason(const std::string& errors, const std::string& port) {
  std::string reason;
  std::istringstream lines(errors);
  for (std::string line; std::getline(lines, line);) {
    if (!isNoise(line)) reason += (reason.empty() ? "" : "\n") + line;
  }
  if (reason.empty()) reason = "Apache does not say; see /var/log/apache2/error.log";
  if (errors.find("AH00072") != std::string::npos) reason += holders(port);
  if (errors.find("multiple Listeners") != std::string::npos) {
    reason += "\nAnother site of this Apache listens on port " + port;
  }
  return reason;
}

}  // namespace tessel
