#include "control/tessel_ctl.h"
#include "platform/files/folder_lock.h"
#include "platform/files/path.h"
#include "platform/process/console.h"

namespace tessel {

TesselCtl::TesselCtl() {
  tesselApacheConfigFileName = "httpd_tessel.conf";
  activeTesselApacheConfigFilePath =
      appendPathComponent("/etc/apache2/other", tesselApacheConfigFileName);
  inactiveTesselApacheConfigFilePath =
      appendPathExtension(activeTesselApacheConfigFilePath, "inactive");
  tesselConfigDirectory = "/etc/tessel";
  tesselStateDirectory = "/var/lib/tessel";
  tesselApacheConfigFilePath =
      appendPathComponent(tesselConfigDirectory, tesselApacheConfigFileName);
  tesselConfigFilePath = appendPathComponent(tesselConfigDirectory, "tessel.plist");
  activeTesselProxyConfigFilePath =
      appendPathComponent(tesselConfigDirectory, "httpd_tessel_proxy.conf");
  inactiveTesselProxyConfigFilePath =
      appendPathExtension(activeTesselProxyConfigFilePath, "inactive");
  tesselStartedApacheFilePath = appendPathComponent(tesselConfigDirectory, ".tesselStartedApache");
  httpdEnvFilePath = "/etc/apache2/env.plist";
  launchAgentsDirectory = "/Library/LaunchAgents";
}

std::unique_ptr<TesselCtl> TesselCtl::init() {
  std::unique_ptr<TesselCtl> controller(new TesselCtl());
  if (!controller->isInstalled()) return nullptr;

  auto configuration = PropertyList::load(controller->tesselConfigFilePath);
  if (!configuration) {
    reportError("Tessel config file " + controller->tesselConfigFilePath + " is malformed.\n");
    return nullptr;
  }
  controller->tesselConfigDictionary = std::move(*configuration);

  controller->loadEnvironment();
  return controller;
}

void TesselCtl::loadEnvironment() {
  auto environment = PropertyList::load(httpdEnvFilePath);
  if (environment) httpdEnvDictionary = std::move(*environment);
}

// Held while Tessel is turned on or off, which is one change: the steps of two runs at once, mixed
// up, leave two identities, or an Apache that is off with a marker that says otherwise. Only root
// can open the folder, and so make others wait. Where there is none, the run goes on.
Result<FileDescriptor> TesselCtl::waitForTurn() const { return lockFolder(tesselStateDirectory); }

// The newlines inside two of the messages, and the bare name in one, are part of the interface.
bool TesselCtl::isInstalled() const {
  if (!fileManager.fileExistsAtPath(tesselConfigDirectory)) {
    reportError("Main Tessel config directory " + tesselConfigDirectory + " is missing.");
    return false;
  }
  if (!fileManager.fileExistsAtPath(tesselApacheConfigFilePath)) {
    reportError("Apache config file " + tesselApacheConfigFileName + " is missing.\n");
    return false;
  }
  if (!fileManager.fileExistsAtPath(tesselConfigFilePath)) {
    reportError("Tessel config file " + tesselConfigFilePath + " is missing.\n");
    return false;
  }
  return true;
}

bool TesselCtl::isEnabled() const {
  return fileManager.fileExistsAtPath(activeTesselApacheConfigFilePath);
}

}  // namespace tessel
