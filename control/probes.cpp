#include <sstream>

#include "control/tessel_ctl.h"
#include "platform/network/http.h"
#include "platform/process/console.h"
#include "platform/process/program.h"
#include "platform/property_list/description.h"

namespace tessel {

std::string TesselCtl::httpdProcessString() const {
  const std::string listing =
      resultsFromCommand("/bin/ps", {"-A", "-c", "-o", "comm,ruser,ppid,pid,start"});
  std::string processes = listing.substr(0, listing.find('\n'));
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("httpd")) processes += "\n" + line;
  }
  printLine(processes);
  return processes;
}

std::int64_t TesselCtl::httpResponseOnPort(const std::string& port, bool usingSSL,
                                           bool usingLocalhost) const {
  const std::string serverName = identityManager ? identityManager->serverName() : kMissingValue;
  const std::string url = std::string(usingSSL ? "https" : "http") + "://" +
                          (usingLocalhost ? "127.0.0.1" : serverName) + ":" + port;
  const Result<std::int64_t> status = httpGet(url, serverName);
  if (!status) {
    print("Error: " + status.error().description + "\n");
    print("URL=" + url + "\n");
    return 0;
  }
  return *status;
}

void TesselCtl::restartHTTPDGracefully() const {
  const auto status =
      runProgram("/bin/launchctl", {"kill", "USR1", "system/org.apache.httpd"}, Streams::Discarded);
  // Printed when the restart fails, not when it works: the inversion is part of the interface.
  if (!status || *status != 0) printLine("Gracefully restarted httpd");
}

}  // namespace tessel
