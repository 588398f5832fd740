// The system keychain: TLS certificates and private keys in one file that only its owner can read.
// docs/keychain.md describes the file. Nothing here ever asks a person anything. An object is for
// one thread; several, in any number of processes, may work on one file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/database/database.h"
#include "platform/keychain/certificate.h"
#include "platform/keychain/private_key.h"

namespace tessel {

inline constexpr const char* kSystemKeychainPath = "/Library/Keychains/System.keychain";

// Who may use a private key without being asked.
struct AccessObject {
  std::string description;
  std::vector<std::string> trustedPrograms;  // absolute paths
};

// The entry of a program in an access object. Fails when there is no such file.
Result<std::string> trustedProgram(const std::string& path);
// The same for the program that is running.
Result<std::string> callingTrustedProgram();

// A certificate and the private key to its public key.
struct Identity {
  Certificate certificate;
  PrivateKey privateKey;
};

// What a look for identities found.
struct FoundIdentities {
  std::vector<Identity> identities;
  // What was passed over since it is damaged, each as "item 12: the reason".
  std::vector<std::string> damage;
};

struct KeychainItem {
  enum class Kind { Identity, Certificate, PrivateKey, PublicKey };

  std::int64_t id = 0;  // never given to another item
  Kind kind = Kind::Certificate;
  std::string label;
  std::optional<Certificate> certificate;  // of identities and certificates, unless damaged
  std::optional<std::string> damage;       // why its content makes no sense
};

enum class ImportOutcome { Imported, AlreadyThere };

class Keychain {
 public:
  // Opens the keychain at the path. A file that does not exist is an empty keychain, made with its
  // first item. Fails with a text when the folder is missing or when what stands there cannot be
  // read or is no keychain.
  static Result<Keychain> open(const std::string& path);

  // The identities whose certificate has exactly this label, in the order in which the certificates
  // were added.
  Result<FoundIdentities> identities(const std::string& label) const;

  // Every certificate that can be decoded, in the order in which they were added.
  Result<std::vector<Certificate>> certificates() const;

  // The identity of a certificate, found by its public key among the private keys.
  Result<Identity> identityWithCertificate(const Certificate& certificate) const;

  // Adds a private key with its access object and its public key as two items.
  Status addKeyPair(const PrivateKey& key, const std::string& label, const AccessObject& access);
  Status addCertificate(const Certificate& certificate, const std::string& label);
  // Removes the public-key item of this key pair, if there is one.
  Status deletePublicKey(const PrivateKey& key);

  // What the keychain holds in the order in which it was added; the private key of an identity is
  // part of it and not listed by itself.
  Result<std::vector<KeychainItem>> items() const;

  // Adds a certificate and its private key, and the other certificates of its chain that are not
  // there yet, all or nothing. Fails when the key is not the certificate's, or when the certificate
  // is there under another label.
  Result<ImportOutcome> importIdentity(const std::vector<Certificate>& chain, const PrivateKey& key,
                                       const std::string& label, const AccessObject& access);

  // Puts the certificate that is this item after all others, as if it had been added just now; it
  // gets a new id. Fails when `last` is not the last certificate's any more, so that nothing which
  // the caller has not seen ends up before it.
  Status addAgain(std::int64_t id, std::int64_t last);

  // Removes an item by its id; with the last certificate of a private key goes the key.
  Status deleteItem(std::int64_t id);

 private:
  explicit Keychain(std::string path) : path_(std::move(path)) {}

  // Whether the file is empty: it has no schema, as a run leaves it that was killed before its
  // first change.
  Result<bool> openExisting();
  Status prepareForWriting();
  // Runs `function(const sql::Database&)`, which returns a Status, in one transaction that is
  // undone when it fails.
  template <typename Function>
  Status change(Function function);

  std::string path_;
  std::optional<sql::Database> database_;  // none while there is nothing in the file
};

}  // namespace tessel
