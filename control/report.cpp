#include "control/command_runner.h"
#include "control/launch_jobs.h"
#include "control/probes.h"
#include "control/tessel_ctl.h"
#include "control/user_jobs.h"
#include "platform/base/text.h"
#include "platform/process/console.h"
#include "platform/process/process.h"
#include "platform/property_list/description.h"

namespace tessel {

namespace {

constexpr std::int32_t kHTTPSPort = 443;
constexpr std::int64_t kOK = 200;

void printUserRow(const std::string& user, const std::string& port, const std::string& responding,
                  const std::string& mapperPID, const std::string& alive) {
  printLine(padded(user, 15) + " " + padded(port, 8) + " " + padded(responding, 13) + " " +
            padded(mapperPID, 10) + " " + padded(alive, 10));
}

void printSection(const std::string& title, const std::string& content) {
  print("\n" + title + ":\n" + content + "\n");
}

}  // namespace

bool TesselCtl::diagnose() {
  const std::string configuration = description(tesselConfigDictionary.root());
  const std::string environment = description(httpdEnvDictionary.root());

  printLine("\nTessel diagnostic information\n");
  printSection("Settings configured at " + tesselConfigFilePath, configuration);
  printSection("Settings configured at " + httpdEnvFilePath, environment);
  if (orrinHasDefaultHTTPPorts()) {
    print(
        "Orrin is present and Calder is enabled. The Apache httpd instance for Tessel should be "
        "configured to run behind Orrin's proxy.");
  }
  showShares();
  print(std::string("\nTessel is ") + (isEnabled() ? "enabled" : "not enabled") + ".\n");
  reportUserJobs();

  identityManager = IdentityManager::initWithConfiguredName(tesselConfigDictionary.identityName());

  printSection("Contents of /etc/tessel/", resultsFromCommand("/bin/ls", {"-l", "/etc/tessel"}));
  if (fileManager.fileExistsAtPath(httpdEnvFilePath)) {
    printSection("Current env vars for Apache configured at " + httpdEnvFilePath, environment);
    reportApache(identityManager->serverName());
  } else {
    print("\nNo file found at " + httpdEnvFilePath + "; Tessel was probably never started.\n");
  }
  if (configIsValid()) {
    printLine("\nConfig is valid");
  } else {
    reportError("Config is invalid\n");
  }
  printLine("\nAll httpd processes:");
  (void)httpdProcessString();
  return true;
}

void TesselCtl::reportUserJobs() const {
  const size_t count = tesselPlists(launchAgentsDirectory).size();
  if (count == 0) return;
  print(std::to_string(count) + " Active Users:\n\n");
  printUserRow("USER", "PORT", "RESPONDING?", "MAPPER-PID", "PID-ALIVE?");
  for (const std::string& name : tesselPlists(launchAgentsDirectory)) {
    const UserJob job = userJob(name);
    const bool alive = processExists(leadingInteger(job.mapperPID));
    // The identity is looked up further on, so that there is no name to ask yet.
    const bool responding = httpResponseOnPort(job.port, false, false, std::nullopt) != 0;
    printUserRow(job.user, job.port, responding ? "Yes" : "No", job.mapperPID,
                 alive ? "Yes" : "No");
  }
}

void TesselCtl::reportApache(const std::string& serverName) const {
  printLine("\nMain httpd status:");
  print("\tConfig syntax check:" + resultsFromCommand("/usr/sbin/httpd-wrapper", {"-t"}) + "\n");
  print(std::string("\tLaunch job is ") +
        (launchJobIsLoaded(kApacheJobLabel) ? "loaded" : "not loaded") + ".\n");
  const std::int64_t plain = httpResponseOnPort("80", false, false, serverName);
  print("\tReturns " + std::to_string(plain) + " on port 80.\n");
  const std::int64_t encrypted = httpResponseOnPort("443", true, false, serverName);
  print("\tReturns " + std::to_string(encrypted) + " port 443.\n");
  reportConfiguredPort(serverName);
}

void TesselCtl::reportConfiguredPort(const std::string& serverName) const {
  const std::int32_t port = tesselConfigDictionary.portNumber();
  if (!orrinHasDefaultHTTPPorts()) {
    if (port == kHTTPSPort) return;
    const std::string portText = description(tesselConfigDictionary.serverPort());
    const std::int64_t status = httpResponseOnPort(portText, true, false, serverName);
    print("\tConfig file specifies non-standard TCP port " + std::to_string(port) + " which is " +
          (status == kOK ? "responding" : "not responding") + ".\n");
    return;
  }
  const auto address = tesselConfigDictionary.serverAddress();
  if (port != kPortBehindOrrin || !address || address->string() != "127.0.0.1") return;
  print(
      "\tConfig file specifies 127.0.0.1:81, non-SSL, which is correct behind-the-Orrin-proxy "
      "configuration, ");
  const std::int64_t status = httpResponseOnPort("81", false, true, serverName);
  print(std::string("and ") + (status != 0 ? "is" : "is not") + " responding.\n");
}

}  // namespace tessel
