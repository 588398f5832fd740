#include "control/launch_jobs.h"

#include "platform/files/path.h"
#include "platform/process/console.h"
#include "platform/process/program.h"

namespace tessel {

namespace {

bool launchctl(const std::vector<std::string>& arguments, Streams streams) {
  const Result<int> status = runProgram("/bin/launchctl", arguments, streams);
  return status && *status == 0;
}

}  // namespace

std::string plistPathForLabel(const std::string& label) {
  return appendPathExtension(appendPathComponent("/System/Library/LaunchDaemons", label), "plist");
}

bool launchJobIsLoaded(const std::string& label) {
  return launchctl({"list", label}, Streams::Discarded);
}

bool loadLaunchJob(const std::string& label) {
  return launchctl({"load", "-w", plistPathForLabel(label)}, Streams::Inherited);
}

bool unloadLaunchJob(const std::string& label) {
  return unloadLaunchJobFile(plistPathForLabel(label));
}

bool unloadLaunchJobFile(const std::string& path) {
  return launchctl({"unload", "-w", path}, Streams::Discarded);
}

void restartHTTPDGracefully() {
  // Printed when the restart fails, not when it works: the inversion is part of the interface.
  if (!launchctl({"kill", "USR1", std::string("system/") + kApacheJobLabel}, Streams::Discarded)) {
    printLine("Gracefully restarted httpd");
  }
}

}  // namespace tessel
