#include "contract/apache_environment.h"
#include "control/command_runner.h"
#include "control/tessel_ctl.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr const char* kOrrinProxyTool =
    "/Applications/Orrin.app/Contents/ServerRoot/usr/sbin/harlowctl";

}  // namespace

bool TesselCtl::orrinHasDefaultHTTPPorts() const {
  return httpdEnvDictionary.value(environment::kOrrinHasDefaultPorts).has_value();
}

bool TesselCtl::configureServerToProxyToTessel(bool enable) const {
  const bool active = fileManager.fileExistsAtPath(activeTesselProxyConfigFilePath);
  if (active == enable) return true;
  if (enable && !fileManager.fileExistsAtPath(inactiveTesselProxyConfigFilePath)) return true;

  const Status changed = enable ? fileManager.createSymbolicLink(activeTesselProxyConfigFilePath,
                                                                 inactiveTesselProxyConfigFilePath)
                                : fileManager.removeItem(activeTesselProxyConfigFilePath);
  if (!changed) {
    reportError(changed.error().description);
    return false;
  }
  (void)resultsFromCommand(kOrrinProxyTool, {"reload"});
  printLine(enable ? "Configured Orrin to relay WebDAV traffic to Tessel."
                   : "Configured Orrin to stop relaying WebDAV traffic to Tessel.");
  return true;
}

}  // namespace tessel
