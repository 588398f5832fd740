#include "control/tessel_ctl.h"
#include "platform/network/host_names.h"
#include "platform/process/console.h"
#include "platform/property_list/description.h"

namespace tessel {

bool TesselCtl::start() {
  const auto turn = waitForTurn();
  // A run that was waited for may have changed it.
  loadEnvironment();
  if (!activateApacheConfig()) return false;

  const auto usingSSL = tesselConfigDictionary.value("ServerSSL");
  if (usingSSL && usingSSL->boolean()) {
    httpdEnvDictionary.setString("-D TESSEL_SSL", "");
    if (!checkCertsAndExportIfNeeded()) {
      reportError("Cannot start in SSL mode due to certificate problem");
      return false;
    }
  } else {
    httpdEnvDictionary.remove("-D TESSEL_SSL");
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
    (void)fileManager.createFile(tesselStartedApacheFilePath, kDefaultFileMode);
  }
  (void)loadLaunchJob(kApacheJobLabel);

  if (orrinHasDefaultHTTPPorts()) (void)configureServerToProxyToTessel(true);
  return true;
}

bool TesselCtl::activateApacheConfig() const {
  if (fileManager.fileExistsAtPath(activeTesselApacheConfigFilePath)) return true;
  const bool parked = fileManager.fileExistsAtPath(inactiveTesselApacheConfigFilePath);
  const MaybeError failure = parked
                                 ? fileManager.moveItem(inactiveTesselApacheConfigFilePath,
                                                        activeTesselApacheConfigFilePath)
                                 : fileManager.createSymbolicLink(activeTesselApacheConfigFilePath,
                                                                  tesselApacheConfigFilePath);
  if (failure) reportError(failure->description);
  return !failure;
}

void TesselCtl::updateEnvironment() {
  const auto port = tesselConfigDictionary.value("ServerPort");
  if (port) {
    httpdEnvDictionary.setString("TESSEL_SERVER_PORT", description(*port));
  } else {
    httpdEnvDictionary.remove("TESSEL_SERVER_PORT");
  }
  setEnvironmentValue("TESSEL_SERVER_ADDR", tesselConfigDictionary.value("ServerAddr"));
  setEnvironmentValue("TESSEL_ACCESS_GROUP", tesselConfigDictionary.value("AccessGroup"));

  // The host's name replaces the name of the identity that the certificate check may have stored,
  // unless the configuration names the server itself.
  const auto configuredName = tesselConfigDictionary.value("TESSEL_SERVER_NAME");
  if (!configuredName || configuredName->string() == "") {
    if (const auto host = hostName()) httpdEnvDictionary.setString("TESSEL_SERVER_NAME", *host);
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
