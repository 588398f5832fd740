// The TLS identity for one server name: finds the one to use in the system keychain, names it by
// its certificate ID, exports it for Apache, and makes a self-signed one on demand.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/keychain/keychain.h"

namespace tessel {

class IdentityManager {
 public:
  // For the host's name.
  static std::unique_ptr<IdentityManager> init();

  // Looks the identity up and, finding one, exports it: the export is the test that it is usable.
  // Prints what it finds. The object exists either way; certID() tells.
  static std::unique_ptr<IdentityManager> initWithServerName(const std::string& name);

  const std::string& serverName() const { return name; }

  // The certificate ID of the identity found or created; none when there is no usable one.
  const std::optional<std::string>& certID() const { return certificateID; }

  // Makes a self-signed identity for the server name that /usr/sbin/httpd may use, exports it and
  // takes over its certificate ID. Returns whether there is one; false leaves certID() as it was.
  bool createIdentityAndUpdate();

  // The identity to use for a server name, already exported. Trusted ones go before those of an
  // unknown issuer, those before self-signed ones; within a class, the last added wins. None when
  // there is none or its export fails.
  static std::optional<Identity> GetPreferredIdentityForName(const std::string& name);

  // The subject's common name, a full stop and the certificate's SHA-256 in hexadecimal. None
  // without an identity or a common name.
  static std::optional<std::string> CertIDForIdentity(const std::optional<Identity>& identity);

  // The SHA-256 of the data as 64 lower-case hexadecimal digits.
  static std::optional<std::string> CreateSHA256HashStringWithData(std::string_view data);

  // Makes a key pair and a self-signed certificate for the name in the system keychain, with access
  // for the given programs and this one, and exports both; a failed export does not count. None,
  // after a message, when it cannot be made.
  static std::optional<Identity> CreateSelfSignedIdentityNamed(
      const std::string& name, const std::vector<std::string>& allowedExecutablePaths);

  // Writes the key, encrypted under a new pass phrase, the certificate, and the script that prints
  // the pass phrase to /etc/tessel. The identity only names the files. Returns whether all three
  // were written; what was written before a failure stays.
  static bool exportIdentity(const Identity& identity, const Certificate& certificateRef,
                             const PrivateKey& keyRef);

 private:
  explicit IdentityManager(std::string serverName) : name(std::move(serverName)) {}

  std::string name;
  std::optional<std::string> certificateID;
};

// The files that are exported under a certificate ID.
std::string exportedKeyPath(const std::string& certID);
std::string exportedCertificatePath(const std::string& certID);

}  // namespace tessel
