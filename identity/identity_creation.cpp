#include "identity/identity_creation.h"

#include "identity/identity_export.h"
#include "platform/keychain/random.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace tessel {

namespace {

constexpr const char* kAccessDescription = "Access to trusted apps";
constexpr int kValidityDays = 730;
constexpr unsigned kKeyBits = 2048;

// None, after a message, when not even this program can be trusted.
std::optional<AccessObject> accessFor(const std::vector<std::string>& allowedExecutablePaths) {
  AccessObject access{kAccessDescription, {}};
  for (const std::string& path : allowedExecutablePaths) {
    if (auto program = trustedProgram(path)) access.trustedPrograms.push_back(*program);
  }
  auto self = callingTrustedProgram();
  if (!self) {
    reportError("SecTrustedApplicationCreateFromPath error: " + self.error().description);
    return std::nullopt;
  }
  access.trustedPrograms.push_back(*self);
  return access;
}

std::optional<PrivateKey> createUserKeyPair(Keychain& keychain, const std::string& label,
                                            const AccessObject& access) {
  auto key = PrivateKey::generateRSA(kKeyBits);
  const Status added = key ? keychain.addKeyPair(*key, label, access) : key.error();
  if (!added) {
    reportError("_createUserKeyPair error: " + added.error().description);
    return std::nullopt;
  }
  return *key;
}

Result<Certificate> signedCertificate(const std::string& name, const PrivateKey& key) {
  const auto serial = randomNonZeroNumber();
  if (!serial) return serial.error();
  return Certificate::createSelfSigned({name, localeCountryCode(), *serial, kValidityDays}, key);
}

std::optional<Certificate> createCertificate(Keychain& keychain, const std::string& name,
                                             const PrivateKey& key) {
  const auto certificate = signedCertificate(name, key);
  const Status added =
      certificate ? keychain.addCertificate(*certificate, name) : certificate.error();
  if (!added) {
    reportError("createSelfSignedCertificateWithPublicKey error: " + added.error().description);
    return std::nullopt;
  }
  return *certificate;
}

}  // namespace

std::optional<Identity> makeSelfSignedIdentity(
    const std::string& name, const std::vector<std::string>& allowedExecutablePaths) {
  Result<Keychain> keychain = Keychain::open(kSystemKeychainPath);
  if (!keychain) {
    reportError("SecKeychainOpen error: " + keychain.error().description);
    return std::nullopt;
  }
  const auto access = accessFor(allowedExecutablePaths);
  if (!access) return std::nullopt;
  const auto key = createUserKeyPair(*keychain, name, *access);
  if (!key) return std::nullopt;
  const auto certificate = createCertificate(*keychain, name, *key);
  if (!certificate) return std::nullopt;

  // Only the private key and the certificate are kept.
  (void)keychain->deletePublicKey(*key);
  const Result<Identity> identity = keychain->identityWithCertificate(*certificate);
  if (!identity) {
    reportError("SecIdentityCreateWithCertificate error: " + identity.error().description);
    return std::nullopt;
  }
  return *identity;
}

std::optional<Identity> CreateSelfSignedIdentityNamed(
    const std::string& name, const std::vector<std::string>& allowedExecutablePaths) {
  auto identity = makeSelfSignedIdentity(name, allowedExecutablePaths);
  // An identity that could not be exported exists all the same; the next start exports it again.
  if (identity) (void)exportIdentity(*identity, identity->certificate, identity->privateKey);
  return identity;
}

}  // namespace tessel
