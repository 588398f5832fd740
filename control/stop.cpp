#include "control/tessel_ctl.h"
#include "platform/files/path.h"
#include "platform/process/console.h"
#include "platform/process/program.h"

namespace tessel {

bool TesselCtl::stop() {
  const auto turn = waitForTurn();
  removeUserJobs();

  if (fileManager.fileExistsAtPath(inactiveTesselApacheConfigFilePath)) {
    printLine("Already disabled; no further action taken");
    return true;
  }
  if (const auto failure = fileManager.moveItem(activeTesselApacheConfigFilePath,
                                                inactiveTesselApacheConfigFilePath)) {
    reportError(failure->description);
    return false;
  }

  if (launchJobIsLoaded(kApacheJobLabel)) {
    (void)unloadLaunchJob(kApacheJobLabel);
    if (fileManager.fileExistsAtPath(tesselStartedApacheFilePath)) {
      (void)fileManager.removeItem(tesselStartedApacheFilePath);
    } else {
      (void)loadLaunchJob(kApacheJobLabel);
    }
  }

  if (orrinHasDefaultHTTPPorts()) (void)configureServerToProxyToTessel(false);
  return true;
}

void TesselCtl::removeUserJobs() const {
  for (const std::string& name : tesselPlists()) {
    const std::string path = appendPathComponent(launchAgentsDirectory, name);
    (void)runProgram("/bin/launchctl", {"unload", "-w", path}, Streams::Discarded);
    (void)fileManager.removeItem(path);
    printLine("Unloaded and removed: " + name);
  }
}

}  // namespace tessel
