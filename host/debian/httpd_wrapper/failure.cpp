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

// The processes in what ss(8) prints: "1,23". One with several sockets is there several times,
// which ps(1) does not mind.
std::string processesIn(const std::string& text) {
  std::string processes;
  constexpr std::string_view kProcess = "pid=";
  for (size_t at = text.find(kProcess); at != std::string::npos; at = text.find(kProcess, at)) {
    at += kProcess.size();
    const std::string process = text.substr(at, text.find_first_not_of("0123456789", at) - at);
    processes += (processes.empty() ? "" : ",") + process;
  }
  return processes;
}

std::string socketsOn(const std::string& port) {
  const auto sockets = captureProgram("/bin/ss", {"-Hltnp", "sport = :" + port});
  return sockets ? sockets->standardOutput : "";
}

// A line for each program that has the port.
std::string holders(const std::string& port) {
  std::string lines;
  for (const std::string& holder : portHolders(port)) {
    lines += "\nThe port is taken by process " + holder;
  }
  if (!lines.empty() || socketsOn(port).empty()) return lines;
  return "\nThe port is taken by a program that root cannot see from here";
}

}  // namespace

std::vector<std::string> portHolders(const std::string& port) {
  std::vector<std::string> found;
  const std::string processes = processesIn(socketsOn(port));
  if (processes.empty()) return found;
  const auto listing = captureProgram("/bin/ps", {"-o", "pid=,user=,args=", "-p", processes});
  std::istringstream rows(listing ? listing->standardOutput : "");
  for (std::string row; std::getline(rows, row);) found.push_back(trimmed(row));
  return found;
}

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
