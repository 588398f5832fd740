#include "identity/identity_manager.h"

#include "identity/certificate_id.h"
#include "identity/identity_creation.h"
#include "identity/preferred_identity.h"
#include "platform/network/host_names.h"
#include "platform/process/console.h"

namespace tessel {

std::unique_ptr<IdentityManager> IdentityManager::init() { return initWithServerName(nameFor("")); }

std::string IdentityManager::nameFor(const std::string& configuredName) {
  return configuredName.empty() ? hostName().value_or("") : configuredName;
}

std::unique_ptr<IdentityManager> IdentityManager::initWithServerName(const std::string& name) {
  std::unique_ptr<IdentityManager> manager(new IdentityManager(name));
  const auto identity = GetPreferredIdentityForName(name);
  if (!identity) {
    printLine("Keychain does not contain a usable identity for server name " + name);
  }
  manager->certID_ = CertIDForIdentity(identity);
  if (!manager->certID_) printLine("Could not find CERT_ID for certificate");
  return manager;
}

bool IdentityManager::createIdentityAndUpdate() {
  const auto identity = CreateSelfSignedIdentityNamed(serverName_, {"/usr/sbin/httpd"});
  if (!identity) return false;
  certID_ = CertIDForIdentity(identity);
  return certID_.has_value();
}

}  // namespace tessel
