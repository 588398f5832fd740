#include "control/tessel_ctl.h"

#include <chrono>
#include <utility>

#include "contract/paths.h"
#include "control/launch_jobs.h"
#include "platform/files/lock.h"
#include "platform/files/path.h"
#include "platform/process/console.h"
#include "shares/share_addition.h"
#include "shares/share_listing.h"
#include "shares/share_removal.h"

namespace tessel {

TesselCtl::TesselCtl() {
  tesselApacheConfigFileName = kApacheConfigurationName;
  activeTesselApacheConfigFilePath = kActiveApacheConfiguration;
  inactiveTesselApacheConfigFilePath =
      appendPathExtension(activeTesselApacheConfigFilePath, "inactive");
  tesselConfigDirectory = kTesselFolder;
  tesselApacheConfigFilePath =
      appendPathComponent(tesselConfigDirectory, tesselApacheConfigFileName);
  tesselConfigFilePath = kSettingsFile;
  activeTesselProxyConfigFilePath =
      appendPathComponent(tesselConfigDirectory, "httpd_tessel_proxy.conf");
  inactiveTesselProxyConfigFilePath =
      appendPathExtension(activeTesselProxyConfigFilePath, "inactive");
  tesselStartedApacheFilePath = appendPathComponent(tesselConfigDirectory, ".tesselStartedApache");
  httpdEnvFilePath = kApacheEnvironmentFile;
  launchAgentsDirectory = "/Library/LaunchAgents";
}

std::unique_ptr<TesselCtl> TesselCtl::init() {
  std::unique_ptr<TesselCtl> controller(new TesselCtl());
  if (!controller->isInstalled()) return nullptr;

  auto configuration = Configuration::load(controller->tesselConfigFilePath);
  if (!configuration) {
    reportError("Tessel config file " + controller->tesselConfigFilePath + " is malformed.\n");
    return nullptr;
  }
  controller->tesselConfigDictionary = *std::move(configuration);

  controller->loadEnvironment();
  return controller;
}

void TesselCtl::loadEnvironment() {
  auto environment = PropertyList::load(httpdEnvFilePath);
  httpdEnvDictionary = environment ? *std::move(environment) : PropertyList();
}

// Held while Tessel is turned on or off, which is one change: the steps of two runs at once, mixed
// up, leave two identities, or an Apache that is off with a marker that says otherwise. A run that
// hangs must not keep an administrator from turning Tessel off, and where there is nothing to lock
// the work is done as well. Whoever was waited for may have changed the environment.
FileDescriptor TesselCtl::waitForTurn() {
  constexpr std::chrono::seconds kLongestWait(30);
  constexpr std::chrono::seconds kLongestSilence(1);
  const auto tell = [](const std::string& holder) {
    printErrorLine("Waiting for " + holder + ", which is turning Tessel on or off...");
  };
  auto turn = lockFolder(kTesselStateFolder, {kLongestWait, kLongestSilence, tell});
  if (turn && !*turn) printErrorLine("It does not end; going on without waiting for it.");
  loadEnvironment();
  return turn && *turn ? *std::move(*turn) : FileDescriptor();
}

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

void TesselCtl::showShares() const { tessel::showShares(); }

bool TesselCtl::addShare(const std::string& path) const {
  const ShareAddition outcome = tessel::addShare(path);
  if (outcome == ShareAddition::Created) restartHTTPDGracefully();
  return outcome != ShareAddition::Failed;
}

bool TesselCtl::removeShare(const std::string& path) const {
  if (!tessel::removeShare(path)) return false;
  restartHTTPDGracefully();
  return true;
}

}  // namespace tessel
