#include "platform/keychain/keychain.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/base/system_error.h"
#include "platform/files/file_descriptor.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/process/process.h"

namespace tessel {

namespace {

constexpr mode_t kKeychainMode = 0600;
constexpr std::int64_t kApplicationID = 0x54534B43;  // "TSKC", in the file's header
constexpr std::int64_t kFormatVersion = 1;

// What SQLite keeps of these is their text, by which a keychain is known.
constexpr const char* kItemTable = R"(CREATE TABLE item (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    class TEXT NOT NULL CHECK (class IN ('certificate', 'private key', 'public key')),
    label TEXT NOT NULL,
    der BLOB NOT NULL,
    public_key_digest BLOB NOT NULL,
    access_description TEXT CHECK ((access_description IS NOT NULL) = (class = 'private key'))
  ))";
constexpr const char* kItemIndex =
    "CREATE INDEX item_by_public_key ON item (public_key_digest, class)";
constexpr const char* kTrustedProgramTable = R"(CREATE TABLE trusted_program (
    item INTEGER NOT NULL REFERENCES item ON DELETE CASCADE,
    position INTEGER NOT NULL,
    path TEXT NOT NULL,
    PRIMARY KEY (item, position)
  ))";
constexpr const char* kHeader =
    "PRAGMA application_id = 0x54534B43;"
    "PRAGMA user_version = 1;";

// Whether there is all that a keychain has, and no view or trigger that could run without end; the
// tables that SQLite makes for itself do not count.
constexpr const char* kIsOurSchema = R"(
  SELECT total(sql IN (?1, ?2, ?3)) = 3 AND
    total(sql NOT IN (?1, ?2, ?3) AND sql NOT LIKE 'CREATE TABLE sqlite\_%' ESCAPE '\') = 0
  FROM sqlite_schema
)";

// Certificates and, beside each, the key of the same public key.
constexpr const char* kIdentitiesByLabel = R"(
  SELECT c.der, k.der FROM item c JOIN item k ON k.id =
    (SELECT min(id) FROM item
     WHERE public_key_digest = c.public_key_digest AND class = 'private key')
  WHERE c.class = 'certificate' AND c.label = ? ORDER BY c.id
)";

constexpr const char* kItems = R"(
  SELECT i.id, i.class, i.label, i.der, EXISTS
    (SELECT 1 FROM item o WHERE o.public_key_digest = i.public_key_digest AND o.class =
       CASE i.class WHEN 'certificate' THEN 'private key' ELSE 'certificate' END)
  FROM item i ORDER BY i.id
)";

bool makeSchema(const Database& database) {
  return database.execute(kItemTable) && database.execute(kItemIndex) &&
         database.execute(kTrustedProgramTable) && database.execute(kHeader);
}

bool hasOurSchema(const Database& database) {
  Statement statement = database.prepare(kIsOurSchema);
  statement.bind(kItemTable).bind(kItemIndex).bind(kTrustedProgramTable);
  return statement.step() && statement.number(0) == 1;
}

bool addItem(const Database& database, const char* itemClass, const std::string& label,
             std::string_view der, const SHA256Digest& publicKey) {
  return database
      .prepare("INSERT INTO item (class, label, der, public_key_digest) VALUES (?, ?, ?, ?)")
      .bind(itemClass)
      .bind(label)
      .bindBlob(der)
      .bindBlob(bytesOf(publicKey))
      .run();
}

// What is stored of a certificate.
struct EncodedCertificate {
  std::string der;
  SHA256Digest publicKeyDigest{};
};

Result<EncodedCertificate> encode(const Certificate& certificate) {
  auto der = certificate.der();
  if (!der) return der.error();
  const auto digest = certificate.publicKeyDigest();
  if (!digest) return digest.error();
  return EncodedCertificate{*std::move(der), *digest};
}

bool addCertificateItem(const Database& database, const EncodedCertificate& certificate,
                        const std::string& label) {
  return addItem(database, "certificate", label, certificate.der, certificate.publicKeyDigest);
}

bool addPrivateKey(const Database& database, const std::string& label, const Secret& der,
                   const SHA256Digest& publicKey, const AccessObject& access) {
  if (!database
           .prepare("INSERT INTO item (class, label, der, public_key_digest, access_description) "
                    "VALUES ('private key', ?, ?, ?, ?)")
           .bind(label)
           .bindBlob(der.view())
           .bindBlob(bytesOf(publicKey))
           .bind(access.description)
           .run()) {
    return false;
  }
  const std::int64_t item = database.lastRowID();
  std::int64_t position = 0;
  for (const std::string& program : access.trustedPrograms) {
    if (!database.prepare("INSERT INTO trusted_program VALUES (?, ?, ?)")
             .bind(item)
             .bind(position++)
             .bind(program)
             .run()) {
      return false;
    }
  }
  return true;
}

// The label under which this certificate is stored, if it is.
std::optional<std::string> labelOf(const Database& database, const std::string& der) {
  Statement statement =
      database.prepare("SELECT label FROM item WHERE class = 'certificate' AND der = ?");
  statement.bindBlob(der);
  if (!statement.step()) return std::nullopt;
  return std::string(statement.bytes(0));
}

bool hasPrivateKey(const Database& database, const SHA256Digest& publicKey) {
  return database
      .prepare("SELECT 1 FROM item WHERE class = 'private key' AND public_key_digest = ?")
      .bindBlob(bytesOf(publicKey))
      .step();
}

std::int64_t certificatesOf(const Database& database, const std::string& publicKey) {
  Statement statement = database.prepare(
      "SELECT count(*) FROM item WHERE class = 'certificate' AND public_key_digest = ?");
  return statement.bindBlob(publicKey).step() ? statement.number(0) : 0;
}

}  // namespace

Result<std::string> trustedProgram(const std::string& path) {
  if (!FileManager().fileExistsAtPath(path)) return Error{path + ": no such program"};
  return path;
}

Result<std::string> callingTrustedProgram() {
  const auto self = executablePath();
  if (!self) return Error{"the running program has no file any more"};
  return *self;
}

Result<Keychain> Keychain::open(const std::string& path) {
  Keychain keychain(path);
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) return Error{path + " is not a regular file"};
    const auto empty = keychain.openExisting();
    if (!empty) return empty.error();
    if (*empty) keychain.database_.reset();
    return keychain;
  }
  if (errno != ENOENT) return systemError("cannot read " + path);
  if (::lstat(path.c_str(), &status) == 0) return Error{path + " is a link to a missing file"};
  if (!FileManager().fileExistsAtPath(parentDirectory(path))) {
    return Error{"the folder " + parentDirectory(path) + " is missing"};
  }
  return keychain;
}

Result<bool> Keychain::openExisting() {
  Result<Database> opened = Database::open(path_);
  if (!opened) return Error{"cannot read " + path_ + ": " + opened.error().description};
  Statement header = opened->prepare(
      "SELECT (SELECT application_id FROM pragma_application_id),"
      " (SELECT user_version FROM pragma_user_version),"
      " (SELECT count(*) FROM sqlite_schema)");
  if (!header.step()) return Error{path_ + " is no keychain: " + opened->error().description};
  const bool empty = header.number(2) == 0;
  if (!empty && header.number(0) != kApplicationID) return Error{path_ + " is no keychain"};
  if (!empty && header.number(1) != kFormatVersion) {
    return Error{path_ + " was written by another version of this program"};
  }
  if (!empty && !hasOurSchema(*opened)) return Error{path_ + " is no keychain"};
  // Pages that lead in circles, or to one page many times over, are found here.
  Statement check = opened->prepare("PRAGMA quick_check(1)");
  if (!check.step()) return Error{"cannot read " + path_ + ": " + opened->error().description};
  if (check.bytes(0) != "ok") return Error{path_ + " is damaged"};
  if (!opened->execute("PRAGMA foreign_keys = ON")) return opened->error();
  database_ = std::move(*opened);
  return empty;
}

Status Keychain::prepareForWriting() {
  if (database_) return {};
  const FileDescriptor file(
      ::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kKeychainMode));
  if (!file || ::fchmod(file.get(), kKeychainMode) != 0) {
    return systemError("cannot create " + path_);
  }
  const auto empty = openExisting();
  return empty ? Status() : Status(empty.error());
}

template <typename Function>
Status Keychain::change(Function function) {
  if (Status prepared = prepareForWriting(); !prepared) return prepared;
  Transaction transaction(*database_);
  if (!transaction) return database_->error();
  if (database_->number("SELECT count(*) FROM sqlite_schema") == 0 &&
      (::chmod(path_.c_str(), kKeychainMode) != 0 || !makeSchema(*database_))) {
    return Error{"cannot make the keychain " + path_};
  }
  if (Status changed = function(*database_); !changed) return changed;
  if (!transaction.commit()) return database_->error();
  return {};
}

Result<std::vector<Identity>> Keychain::identities(const std::string& label) const {
  std::vector<Identity> found;
  if (!database_) return found;
  Statement statement = database_->prepare(kIdentitiesByLabel);
  statement.bind(label);
  while (statement.step()) {
    Result<Certificate> certificate = Certificate::fromDER(statement.bytes(0));
    Result<PrivateKey> key = PrivateKey::fromDER(statement.bytes(1));
    if (certificate && key) found.push_back({std::move(*certificate), std::move(*key)});
  }
  if (statement.failed()) return database_->error();
  return found;
}

Result<std::vector<Certificate>> Keychain::certificates() const {
  std::vector<Certificate> found;
  if (!database_) return found;
  Statement statement =
      database_->prepare("SELECT der FROM item WHERE class = 'certificate' ORDER BY id");
  while (statement.step()) {
    Result<Certificate> certificate = Certificate::fromDER(statement.bytes(0));
    if (certificate) found.push_back(std::move(*certificate));
  }
  if (statement.failed()) return database_->error();
  return found;
}

Result<Identity> Keychain::identityWithCertificate(const Certificate& certificate) const {
  const auto digest = certificate.publicKeyDigest();
  if (!digest) return digest.error();
  if (!database_) return Error{"the keychain is empty"};
  Statement statement = database_->prepare(
      "SELECT der FROM item WHERE class = 'private key' AND public_key_digest = ? ORDER BY id");
  statement.bindBlob(bytesOf(*digest));
  if (!statement.step()) {
    return statement.failed() ? database_->error()
                              : Error{"the keychain holds no private key for the certificate"};
  }
  Result<PrivateKey> key = PrivateKey::fromDER(statement.bytes(0));
  if (!key) return key.error();
  return Identity{certificate, std::move(*key)};
}

Status Keychain::addKeyPair(const PrivateKey& key, const std::string& label,
                            const AccessObject& access) {
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  const auto publicKey = key.publicKeyDER();
  if (!publicKey) return publicKey.error();
  const auto der = key.der();
  if (!der) return der.error();
  return change([&](const Database& db) -> Status {
    if (!addPrivateKey(db, label, *der, *digest, access) ||
        !addItem(db, "public key", label, *publicKey, *digest)) {
      return db.error();
    }
    return {};
  });
}

Status Keychain::addCertificate(const Certificate& certificate, const std::string& label) {
  const auto encoded = encode(certificate);
  if (!encoded) return encoded.error();
  return change([&](const Database& db) -> Status {
    if (!addCertificateItem(db, *encoded, label)) return db.error();
    return {};
  });
}

Status Keychain::deletePublicKey(const PrivateKey& key) {
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  return change([&](const Database& db) -> Status {
    Statement statement =
        db.prepare("DELETE FROM item WHERE class = 'public key' AND public_key_digest = ?");
    if (!statement.bindBlob(bytesOf(*digest)).run()) return db.error();
    return {};
  });
}

Result<std::vector<KeychainItem>> Keychain::items() const {
  std::vector<KeychainItem> found;
  if (!database_) return found;
  Statement statement = database_->prepare(kItems);
  while (statement.step()) {
    const std::string_view itemClass = statement.bytes(1);
    const bool paired = statement.number(4) != 0;
    KeychainItem item;
    item.id = statement.number(0);
    item.label = statement.bytes(2);
    if (itemClass == "certificate") {
      item.kind = paired ? KeychainItem::Kind::Identity : KeychainItem::Kind::Certificate;
      Result<Certificate> certificate = Certificate::fromDER(statement.bytes(3));
      if (certificate) item.certificate = std::move(*certificate);
    } else if (itemClass == "private key") {
      if (paired) continue;
      item.kind = KeychainItem::Kind::PrivateKey;
    } else {
      item.kind = KeychainItem::Kind::PublicKey;
    }
    found.push_back(std::move(item));
  }
  if (statement.failed()) return database_->error();
  return found;
}

Result<ImportOutcome> Keychain::importIdentity(const std::vector<Certificate>& chain,
                                               const PrivateKey& key, const std::string& label,
                                               const AccessObject& access) {
  const auto der = key.der();
  if (!der) return der.error();
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  std::vector<EncodedCertificate> certificates;
  for (const Certificate& certificate : chain) {
    auto encoded = encode(certificate);
    if (!encoded) return encoded.error();
    certificates.push_back(*std::move(encoded));
  }
  if (certificates.front().publicKeyDigest != *digest) {
    return Error{"the key does not belong to the certificate"};
  }

  auto outcome = ImportOutcome::AlreadyThere;
  const Status imported = change([&](const Database& db) -> Status {
    const auto present = labelOf(db, certificates.front().der);
    if (present && *present != label) {
      return Error{"the certificate is there already, labelled \"" + *present + "\""};
    }
    if (!hasPrivateKey(db, *digest)) {
      if (!addPrivateKey(db, label, *der, *digest, access)) return db.error();
      outcome = ImportOutcome::Imported;
    }
    for (size_t i = 0; i < chain.size(); ++i) {
      if (labelOf(db, certificates[i].der)) continue;
      const std::string itsLabel = i == 0 ? label : chain[i].commonName().value_or("");
      if (!addCertificateItem(db, certificates[i], itsLabel)) return db.error();
      outcome = ImportOutcome::Imported;
    }
    return {};
  });
  if (!imported) return imported.error();
  return outcome;
}

Status Keychain::deleteItem(std::int64_t id) {
  const Error noSuchItem{"the keychain holds no item " + std::to_string(id)};
  if (!database_) return noSuchItem;
  return change([&](const Database& db) -> Status {
    Statement item = db.prepare("SELECT class, public_key_digest FROM item WHERE id = ?");
    if (!item.bind(id).step()) return item.failed() ? db.error() : noSuchItem;
    const bool isCertificate = item.bytes(0) == "certificate";
    const std::string digest(item.bytes(1));
    if (!isCertificate && item.bytes(0) == "private key" && certificatesOf(db, digest) > 0) {
      return Error{"item " + std::to_string(id) + " is the private key of an identity"};
    }
    if (!db.prepare("DELETE FROM item WHERE id = ?").bind(id).run()) return db.error();
    if (isCertificate && certificatesOf(db, digest) == 0 &&
        !db.prepare("DELETE FROM item WHERE class = 'private key' AND public_key_digest = ?")
             .bindBlob(digest)
             .run()) {
      return db.error();
    }
    return {};
  });
}

}  // namespace tessel
