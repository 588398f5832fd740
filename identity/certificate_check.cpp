#include "control/tessel_ctl.h"
#include "platform/process/console.h"
#include "platform/property_list/description.h"

namespace tessel {

bool TesselCtl::checkCertsAndExportIfNeeded() {
  const auto current = httpdEnvDictionary.value("TESSEL_CERT_ID");
  if (current) {
    const std::string certID = description(*current);
    const std::string certificatePath = exportedCertificatePath(certID);
    if (fileManager.fileExistsAtPath(exportedKeyPath(certID)) &&
        fileManager.fileExistsAtPath(certificatePath)) {
      printLine("Using existing certificate at " + certificatePath);
      return true;
    }
  }
  printLine("Need to export certs...");

  const auto configured = tesselConfigDictionary.value("ServerName");
  const std::string configuredName = configured ? configured->string().value_or("") : "";
  if (!configuredName.empty()) {
    identityManager = IdentityManager::initWithServerName(configuredName);
    printLine("Using configured server name " + configuredName + ".");
  } else {
    identityManager = IdentityManager::init();
    printLine("Using server name determined by default host name " + identityManager->serverName() +
              ".");
  }

  const std::string& serverName = identityManager->serverName();
  if (identityManager->certID()) {
    printLine("SSL required, found identity for serverName " + serverName + ".");
  } else {
    printLine("SSL required, and identity certificate not found for server name " + serverName +
              "; creating one.");
    if (!identityManager->createIdentityAndUpdate()) {
      reportError("Failed to create identity for " + serverName);
      return false;
    }
    printLine("Created identity in system keychain for " + serverName);
  }
  httpdEnvDictionary.setString("TESSEL_CERT_ID", *identityManager->certID());
  httpdEnvDictionary.setString("TESSEL_SERVER_NAME", serverName);
  return true;
}

}  // namespace tessel
