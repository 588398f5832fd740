#include "identity/certificate_check.h"

#include "contract/paths.h"
#include "platform/files/file_manager.h"
#include "platform/process/console.h"

namespace tessel {

CertificateCheck checkCertsAndExportIfNeeded(const std::optional<std::string>& currentCertID,
                                             const std::string& configuredServerName) {
  if (currentCertID) {
    const std::string certificatePath = exportedCertificatePath(*currentCertID);
    const FileManager files;
    if (files.fileExistsAtPath(exportedKeyPath(*currentCertID)) &&
        files.fileExistsAtPath(certificatePath)) {
      printLine("Using existing certificate at " + certificatePath);
      return {true, nullptr};
    }
  }
  printLine("Need to export certs...");

  auto manager = IdentityManager::initWithConfiguredName(configuredServerName);
  const std::string& serverName = manager->serverName();
  printLine(configuredServerName.empty()
                ? "Using server name determined by default host name " + serverName + "."
                : "Using configured server name " + configuredServerName + ".");
  if (manager->certID()) {
    printLine("SSL required, found identity for serverName " + serverName + ".");
    return {true, std::move(manager)};
  }
  printLine("SSL required, and identity certificate not found for server name " + serverName +
            "; creating one.");
  if (!manager->createIdentityAndUpdate()) {
    reportError("Failed to create identity for " + serverName);
    return {false, std::move(manager)};
  }
  printLine("Created identity in system keychain for " + serverName);
  return {true, std::move(manager)};
}

}  // namespace tessel
