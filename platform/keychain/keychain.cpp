#include "platform/keychain/keychain.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
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

// Certificates and, beside each, the key of the same public key, if there is one.
constexpr const char* kCertificatesByLabel = R"(
  SELECT c.id, c.der, c.public_key_digest, k.id, k.der FROM item c LEFT JOIN item k ON k.id =
    (SELECT min(id) FROM item
     WHERE public_key_digest = c.public_key_digest AND class = 'private key')
  WHERE c.class = 'certificate' AND c.label = ? ORDER BY c.id
)";

// The keys of no certificate: what a creation that was killed left, or what is damaged.
constexpr const char* kKeysAlone = R"(
  SELECT id, der, public_key_digest FROM item k WHERE class = 'private key' AND NOT EXISTS
    (SELECT 1 FROM item c WHERE c.class = 'certificate' AND c.public_key_digest = k.public_key_digest)
)";

constexpr const char* kItems = R"(
  SELECT i.id, i.class, i.label, i.der, i.public_key_digest, EXISTS
    (SELECT 1 FROM item o WHERE o.public_key_digest = i.public_key_digest AND o.class =
       CASE i.class WHEN 'certificate' THEN 'private key' ELSE 'certificate' END)
  FROM item i ORDER BY i.id
)";

// Another run that is writing is waited for; a writer that died holds no lock.
constexpr std::chrono::seconds kLongestWait(30);

Status makeSchema(const sql::Database& database) {
  for (const char* part : {kItemTable, kItemIndex, kTrustedProgramTable, kHeader}) {
    if (Status made = database.execute(part); !made) return made;
  }
  return {};
}

Result<bool> hasOurSchema(const sql::Database& database) {
  auto query = database.prepare(kIsOurSchema);
  if (!query) return query.error();
  const auto is = query->with(kItemTable, kItemIndex, kTrustedProgramTable).firstNumber();
  if (!is) return is.error();
  return *is == 1;
}

// Runs a statement that yields no rows.
template <typename... Values>
Status run(const sql::Database& database, const char* sql, const Values&... values) {
  auto statement = database.prepare(sql);
  if (!statement) return statement.error();
  return statement->with(values...).run();
}

// What a query counts.
template <typename... Values>
Result<std::int64_t> count(const sql::Database& database, const char* sql,
                           const Values&... values) {
  auto statement = database.prepare(sql);
  if (!statement) return statement.error();
  return statement->with(values...).firstNumber();
}

// Calls the function for each row of a query.
template <typename Function, typename... Values>
Status forEachRow(const sql::Database& database, const char* sql, Function function,
                  const Values&... values) {
  auto statement = database.prepare(sql);
  if (!statement) return statement.error();
  statement->with(values...);
  for (auto row = statement->step();; row = statement->step()) {
    if (!row) return row.error();
    if (!*row) return {};
    function(*statement);
  }
}

sql::Blob blobOf(const SHA256Digest& digest) { return {bytesOf(digest)}; }

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

Result<std::vector<EncodedCertificate>> encodeAll(const std::vector<Certificate>& chain) {
  std::vector<EncodedCertificate> certificates;
  for (const Certificate& certificate : chain) {
    auto encoded = encode(certificate);
    if (!encoded) return encoded.error();
    certificates.push_back(*std::move(encoded));
  }
  return certificates;
}

// Decodes a certificate or key whose public key must have this digest.
template <typename Decoded>
Result<Decoded> decode(std::string_view der, std::string_view publicKeyDigest) {
  Result<Decoded> decoded = Decoded::fromDER(der);
  if (!decoded) return decoded;
  const auto digest = decoded->publicKeyDigest();
  if (!digest) return digest.error();
  if (bytesOf(*digest) != publicKeyDigest)
    return Error{"its public key is not the one noted of it"};
  return decoded;
}

Result<PrivateKey> decodeKey(std::string_view der, std::string_view publicKeyDigest) {
  Result<PrivateKey> key = decode<PrivateKey>(der, publicKeyDigest);
  const Status fit = key ? key->halvesFit() : key.error();
  return fit ? key : fit.error();
}

Status addItem(const sql::Database& database, std::string_view itemClass, const std::string& label,
               std::string_view der, const SHA256Digest& publicKey) {
  return run(database,
             "INSERT INTO item (class, label, der, public_key_digest) VALUES (?, ?, ?, ?)",
             itemClass, label, sql::BorrowedBlob{der}, blobOf(publicKey));
}

Status addCertificateItem(const sql::Database& database, const EncodedCertificate& certificate,
                          const std::string& label) {
  return addItem(database, "certificate", label, certificate.der, certificate.publicKeyDigest);
}

Status addPrivateKey(const sql::Database& database, const std::string& label, const Secret& der,
                     const SHA256Digest& publicKey, const AccessObject& access) {
  Status added = run(database,
                     "INSERT INTO item (class, label, der, public_key_digest, access_description) "
                     "VALUES ('private key', ?, ?, ?, ?)",
                     label, sql::BorrowedBlob{der.view()}, blobOf(publicKey), access.description);
  const std::int64_t item = database.lastRowID();
  std::int64_t position = 0;
  for (const std::string& program : access.trustedPrograms) {
    if (!added) return added;
    added =
        run(database, "INSERT INTO trusted_program VALUES (?, ?, ?)", item, position++, program);
  }
  return added;
}

// The label under which this certificate is stored, if it is.
Result<std::optional<std::string>> labelOf(const sql::Database& database, const std::string& der) {
  std::optional<std::string> label;
  const Status read = forEachRow(
      database, "SELECT label FROM item WHERE class = 'certificate' AND der = ? LIMIT 1",
      [&label](const sql::Statement& row) { label = row.bytes(0); }, sql::Blob{der});
  if (!read) return read.error();
  return label;
}

// Whether the certificate had to be added.
Result<bool> addMissingCertificate(const sql::Database& database,
                                   const EncodedCertificate& certificate,
                                   const std::string& label) {
  const auto present = labelOf(database, certificate.der);
  if (!present) return present.error();
  if (*present) return false;
  const Status added = addCertificateItem(database, certificate, label);
  if (!added) return added.error();
  return true;
}

Result<std::int64_t> certificatesOf(const sql::Database& database, const std::string& publicKey) {
  return count(database,
               "SELECT count(*) FROM item WHERE class = 'certificate' AND public_key_digest = ?",
               sql::Blob{publicKey});
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
  const auto unreadable = [this](const Error& reason) {
    return Error{"cannot read " + path_ + ": " + reason.description, reason.code};
  };
  const Error noKeychain{path_ + " is no keychain"};
  sql::Database::Options options;
  options.longestWait = kLongestWait;
  auto opened = sql::Database::open(path_, options);
  if (!opened) return unreadable(opened.error());
  // What is deleted is overwritten, and a commit is on disk, folder entry included, when it
  // returns.
  if (const Status set = opened->execute("PRAGMA secure_delete = ON; PRAGMA synchronous = EXTRA;"
                                         "PRAGMA foreign_keys = ON;");
      !set) {
    return unreadable(set.error());
  }
  const auto tables = opened->number("SELECT count(*) FROM sqlite_schema");
  if (!tables) return Error{noKeychain.description + ": " + tables.error().description};
  const bool empty = *tables == 0;
  if (!empty) {
    const auto application = opened->number("PRAGMA application_id");
    const auto version = opened->number("PRAGMA user_version");
    if (!application || *application != kApplicationID) return noKeychain;
    if (!version || *version != kFormatVersion) {
      return Error{path_ + " was written by another version of this program"};
    }
    const auto ours = hasOurSchema(*opened);
    if (!ours || !*ours) return noKeychain;
    // Pages that lead in circles, and an index that does not lead to what is there, show here.
    std::string verdict;
    const Status checked = forEachRow(*opened, "PRAGMA integrity_check(1)",
                                      [&](const sql::Statement& row) { verdict = row.bytes(0); });
    if (!checked) return unreadable(checked.error());
    if (verdict != "ok") {
      std::replace(verdict.begin(), verdict.end(), '\n', ' ');
      return Error{path_ + " is damaged: " + verdict};
    }
  }
  database_ = *std::move(opened);
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
  auto transaction = sql::Transaction::begin(*database_);
  if (!transaction) return transaction.error();
  const auto tables = database_->number("SELECT count(*) FROM sqlite_schema");
  if (!tables) return tables.error();
  if (*tables == 0) {
    if (::chmod(path_.c_str(), kKeychainMode) != 0) return systemError("cannot close " + path_);
    if (Status made = makeSchema(*database_); !made) return made;
  }
  if (Status changed = function(*database_); !changed) return changed;
  // The journal goes last: once it is gone the changes have been made, and as with other files a
  // folder that cannot be synced is no failure.
  Status committed = transaction->commit();
  if (!committed && sql::failureOf(committed.error()) != sql::Failure::NotSynced) return committed;
  return {};
}

Result<FoundIdentities> Keychain::identities(const std::string& label) const {
  FoundIdentities found;
  if (!database_) return found;
  const auto damaged = [&found](std::int64_t item, const Error& reason) {
    found.damage.push_back("item " + std::to_string(item) + ": " + reason.description);
  };
  bool everyKeyIsThere = true;
  const auto look = [&](const sql::Statement& row) {
    auto certificate = decode<Certificate>(row.bytes(1), row.bytes(2));
    if (!certificate) return damaged(row.number(0), certificate.error());
    if (row.number(3) == 0) {
      everyKeyIsThere = false;
      return;
    }
    auto key = decodeKey(row.bytes(4), row.bytes(2));
    if (!key) return damaged(row.number(3), key.error());
    found.identities.push_back({*std::move(certificate), *std::move(key)});
  };
  if (const Status read = forEachRow(*database_, kCertificatesByLabel, look, label); !read) {
    return read.error();
  }
  if (everyKeyIsThere) return found;
  const auto lookAtKey = [&](const sql::Statement& row) {
    const auto key = decodeKey(row.bytes(1), row.bytes(2));
    if (!key) damaged(row.number(0), key.error());
  };
  if (const Status read = forEachRow(*database_, kKeysAlone, lookAtKey); !read) return read.error();
  return found;
}

Result<std::vector<Certificate>> Keychain::certificates() const {
  std::vector<Certificate> found;
  if (!database_) return found;
  const Status read =
      forEachRow(*database_, "SELECT der FROM item WHERE class = 'certificate' ORDER BY id",
                 [&found](const sql::Statement& row) {
                   Result<Certificate> certificate = Certificate::fromDER(row.bytes(0));
                   if (certificate) found.push_back(*std::move(certificate));
                 });
  if (!read) return read.error();
  return found;
}

Result<Identity> Keychain::identityWithCertificate(const Certificate& certificate) const {
  const auto digest = certificate.publicKeyDigest();
  if (!digest) return digest.error();
  if (!database_) return Error{"the keychain is empty"};
  Result<PrivateKey> key = Error{"the keychain holds no private key for the certificate"};
  const Status read = forEachRow(
      *database_,
      "SELECT der FROM item WHERE class = 'private key' AND public_key_digest = ? "
      "ORDER BY id LIMIT 1",
      [&key](const sql::Statement& row) { key = PrivateKey::fromDER(row.bytes(0)); },
      blobOf(*digest));
  if (!read) return read.error();
  if (!key) return key.error();
  return Identity{certificate, *std::move(key)};
}

Status Keychain::addKeyPair(const PrivateKey& key, const std::string& label,
                            const AccessObject& access) {
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  const auto publicKey = key.publicKeyDER();
  if (!publicKey) return publicKey.error();
  const auto der = key.der();
  if (!der) return der.error();
  return change([&](const sql::Database& db) -> Status {
    Status added = addPrivateKey(db, label, *der, *digest, access);
    return added ? addItem(db, "public key", label, *publicKey, *digest) : added;
  });
}

Status Keychain::addCertificate(const Certificate& certificate, const std::string& label) {
  const auto encoded = encode(certificate);
  if (!encoded) return encoded.error();
  return change([&](const sql::Database& db) { return addCertificateItem(db, *encoded, label); });
}

Status Keychain::deletePublicKey(const PrivateKey& key) {
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  return change([&](const sql::Database& db) {
    return run(db, "DELETE FROM item WHERE class = 'public key' AND public_key_digest = ?",
               blobOf(*digest));
  });
}

Result<std::vector<KeychainItem>> Keychain::items() const {
  std::vector<KeychainItem> found;
  if (!database_) return found;
  const auto look = [&found](const sql::Statement& row) {
    const std::string_view itemClass = row.bytes(1);
    const bool paired = row.number(5) != 0;
    KeychainItem item;
    item.id = row.number(0);
    item.label = row.bytes(2);
    if (itemClass == "certificate") {
      item.kind = paired ? KeychainItem::Kind::Identity : KeychainItem::Kind::Certificate;
      auto certificate = decode<Certificate>(row.bytes(3), row.bytes(4));
      if (certificate) {
        item.certificate = *std::move(certificate);
      } else {
        item.damage = certificate.error().description;
      }
    } else if (itemClass == "private key") {
      item.kind = KeychainItem::Kind::PrivateKey;
      const auto key = decodeKey(row.bytes(3), row.bytes(4));
      if (!key) item.damage = key.error().description;
      if (paired && key) return;
    } else {
      item.kind = KeychainItem::Kind::PublicKey;
    }
    found.push_back(std::move(item));
  };
  if (const Status read = forEachRow(*database_, kItems, look); !read) return read.error();
  return found;
}

Result<ImportOutcome> Keychain::importIdentity(const std::vector<Certificate>& chain,
                                               const PrivateKey& key, const std::string& label,
                                               const AccessObject& access) {
  const auto der = key.der();
  if (!der) return der.error();
  const auto digest = key.publicKeyDigest();
  if (!digest) return digest.error();
  const auto encoded = encodeAll(chain);
  if (!encoded) return encoded.error();
  const std::vector<EncodedCertificate>& certificates = *encoded;
  if (certificates.front().publicKeyDigest != *digest) {
    return Error{"the key does not belong to the certificate"};
  }

  auto outcome = ImportOutcome::AlreadyThere;
  const Status imported = change([&](const sql::Database& db) -> Status {
    const auto present = labelOf(db, certificates.front().der);
    if (!present) return present.error();
    if (*present && **present != label) {
      return Error{"the certificate is there already, labelled \"" + **present + "\""};
    }
    const auto keys =
        count(db, "SELECT count(*) FROM item WHERE class = 'private key' AND public_key_digest = ?",
              blobOf(*digest));
    if (!keys) return keys.error();
    if (*keys == 0) {
      if (Status added = addPrivateKey(db, label, *der, *digest, access); !added) return added;
      outcome = ImportOutcome::Imported;
    }
    for (size_t i = 0; i < chain.size(); ++i) {
      const std::string itsLabel = i == 0 ? label : chain[i].commonName().value_or("");
      const auto added = addMissingCertificate(db, certificates[i], itsLabel);
      if (!added) return added.error();
      if (*added) outcome = ImportOutcome::Imported;
    }
    return {};
  });
  if (!imported) return imported.error();
  return outcome;
}

Status Keychain::addAgain(std::int64_t id, std::int64_t last) {
  return change([&](const sql::Database& db) -> Status {
    const auto newest = db.number("SELECT max(id) FROM item WHERE class = 'certificate'");
    if (!newest) return newest.error();
    if (*newest != last) return Error{"somebody else has added a certificate meanwhile"};
    Status added = run(db,
                       "INSERT INTO item (class, label, der, public_key_digest) "
                       "SELECT class, label, der, public_key_digest FROM item "
                       "WHERE id = ? AND class = 'certificate'",
                       id);
    return added ? run(db, "DELETE FROM item WHERE id = ? AND class = 'certificate'", id) : added;
  });
}

Status Keychain::deleteItem(std::int64_t id) {
  const Error noSuchItem{"the keychain holds no item " + std::to_string(id)};
  if (!database_) return noSuchItem;
  return change([&](const sql::Database& db) -> Status {
    std::optional<std::string> itemClass;
    std::string digest;
    const auto look = [&](const sql::Statement& row) {
      itemClass = row.bytes(0);
      digest = row.bytes(1);
    };
    Status read =
        forEachRow(db, "SELECT class, public_key_digest FROM item WHERE id = ?", look, id);
    if (!read) return read;
    if (!itemClass) return noSuchItem;
    const auto holders = certificatesOf(db, digest);
    if (!holders) return holders.error();
    if (*itemClass == "private key" && *holders > 0) {
      return Error{"item " + std::to_string(id) + " is the private key of an identity"};
    }
    Status deleted = run(db, "DELETE FROM item WHERE id = ?", id);
    // A renewed certificate may have the key as well.
    if (!deleted || *itemClass != "certificate" || *holders > 1) return deleted;
    return run(db, "DELETE FROM item WHERE class = 'private key' AND public_key_digest = ?",
               sql::Blob{digest});
  });
}

}  // namespace tessel
