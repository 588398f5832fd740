#include "control/probes.h"

#include <sstream>

#include "control/command_runner.h"
#include "platform/network/http.h"
#include "platform/process/console.h"
#include "platform/property_list/description.h"

namespace tessel {

std::string httpdProcessString() {
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

std::int64_t httpResponseOnPort(const std::string& port, bool usingSSL, bool usingLocalhost,
                                const std::optional<std::string>& serverName) {
  const std::string name = serverName.value_or(kMissingValue);
  const std::string url = std::string(usingSSL ? "https" : "http") + "://" +
                          (usingLocalhost ? "127.0.0.1" : name) + ":" + port;
  const Result<std::int64_t> status = httpGet(url, name);
  if (!status) {
    print("Error: " + status.error().description + "\n");
    print("URL=" + url + "\n");
    return 0;
  }
  return *status;
}

}  // namespace tessel
