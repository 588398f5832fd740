#include "control/launch_jobs.h"
#include "control/tessel_ctl.h"
#include "control/user_jobs.h"
#include "platform/files/path.h"
#include "platform/process/console.h"

namespace tessel {

bool TesselCtl::stop() {
  const auto turn = waitForTurn();
  removeUserJobs();

  if (fileManager.fileExistsAtPath(inactiveTesselApacheConfigFilePath)) {
    printLine("Already disabled; no further action taken");
    return true;
  }
  const Status parked =
      fileManager.moveItem(activeTesselApacheConfigFilePath, inactiveTesselApacheConfigFilePath);
  if (!parked) {
    reportError(parked.error().description);
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
  for (const std::string& name : tesselPlists(launchAgentsDirectory)) {
    const std::string path = appendPathComponent(launchAgentsDirectory, name);
    (void)unloadLaunchJobFile(path);
    (void)fileManager.removeItem(path);
    printLine("Unloaded and removed: " + name);
  }
}

}  // namespace tessel
