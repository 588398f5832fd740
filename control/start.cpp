#include "contract/apache_environment.h"
#include "control/launch_jobs.h"
#include "control/tessel_ctl.h"
#include "identity/certificate_check.h"
#include "platform/network/host_names.h"
#include "platform/process/console.h"
#include "platform/property_list/description.h"

namespace tessel {

bool TesselCtl::start() {
  const auto turn = waitForTurn();
  if (!activateApacheConfig()) return false;

  if (tesselConfigDictionary.usesTLS()) {
    httpdEnvDictionary.setString(environment::kUsesTLS, "");
    if (!checkCertsAndExportIfNeeded()) {
      reportError("Cannot start in SSL mode due to certificate problem");
      return false;
    }
  } else {
    httpdEnvDictionary.remove(environment::kUsesTLS);
  }

  // From here on nothing stops the sequence: half a start would leave Apache with the new
  // configuration and the old environment.
  updateEnvironment();
  if (const auto xml = httpdEnvDictionary.xml()) {
    (void)fileManager.writeAtomically(httpdEnvFilePath, *xml,
                                      FileManager::Attributes::KeepExisting);
  }

  if (launchJobIsLoaded(kApacheJobLabel)) {
    (void)unloadLaunchJob(kApacheJobLabel);
    (void)fileManager.removeItem(tesselStartedApacheFilePath);
  } else {
    (void)fileManager.createFile(tesselStartedApacheFilePath, defaultFileMode());
  }
  (void)loadLaunchJob(kApacheJobLabel);

  if (orrinHasDefaultHTTPPorts()) (void)configureServerToProxyToTessel(true);
  return true;
}

bool TesselCtl::activateApacheConfig() const {
  if (fileManager.fileExistsAtPath(activeTesselApacheConfigFilePath)) return true;
  const bool parked = fileManager.fileExistsAtPath(inactiveTesselApacheConfigFilePath);
  const Status activated = parked ? fileManager.moveItem(inactiveTesselApacheConfigFilePath,
                                                         activeTesselApacheConfigFilePath)
                                  : fileManager.createSymbolicLink(activeTesselApacheConfigFilePath,
                                                                   tesselApacheConfigFilePath);
  if (!activated) reportError(activated.error().description);
  return static_cast<bool>(activated);
}

bool TesselCtl::checkCertsAndExportIfNeeded() {
  const auto current = httpdEnvDictionary.value(environment::kCertID);
  auto check = tessel::checkCertsAndExportIfNeeded(
      current ? std::optional(description(*current)) : std::nullopt,
      tesselConfigDictionary.identityName());
  if (!check.identityManager) return check.succeeded;
  identityManager = std::move(check.identityManager);
  if (!check.succeeded) return false;
  httpdEnvDictionary.setString(environment::kCertID, *identityManager->certID());
  httpdEnvDictionary.setString(environment::kServerName, identityManager->serverName());
  return true;
}

void TesselCtl::updateEnvironment() {
  if (const auto port = tesselConfigDictionary.serverPort()) {
    httpdEnvDictionary.setString(environment::kServerPort, description(*port));
  } else {
    httpdEnvDictionary.remove(environment::kServerPort);
  }
  setEnvironmentValue(environment::kServerAddress, tesselConfigDictionary.serverAddress());
  setEnvironmentValue(environment::kAccessGroup, tesselConfigDictionary.accessGroup());

  // The host's name replaces the name of the identity that the certificate check may have stored.
  if (!tesselConfigDictionary.leavesApacheServerName()) {
    if (const auto host = hostName()) {
      httpdEnvDictionary.setString(environment::kServerName, *host);
    }
  }
}

void TesselCtl::setEnvironmentValue(const std::string& key,
                                    const std::optional<PropertyListValue>& value) {
  if (value) {
    httpdEnvDictionary.setValue(key, *value);
  } else {
    httpdEnvDictionary.remove(key);
  }
}

}  // namespace tessel
