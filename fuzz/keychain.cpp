// A keychain file that somebody else may have made: its bytes, or SQL that is run on a good one.
#include "platform/keychain/keychain.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "platform/files/file_manager.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {

constexpr const char* kPath = "/var/lib/keychain";
constexpr const char* kLabel = "dav.example.org";

struct Good {
  PrivateKey key = *PrivateKey::generateRSA(2048);
  Certificate certificate = *Certificate::createSelfSigned({kLabel, std::nullopt, 1, 1}, key);
  std::string file;
};
Good* good = nullptr;  // for the life of the process

void removeFiles() {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    (void)::unlink((std::string(kPath) + suffix).c_str());
  }
}

Result<ImportOutcome> import(Keychain& keychain) {
  return keychain.importIdentity({good->certificate}, good->key, kLabel, {"trusted", {"/bin/sh"}});
}

// Statements reach nothing but the file, and end.
int authorize(void* /*unused*/, int action, const char* name, const char* /*value*/,
              const char* /*database*/, const char* /*trigger*/) {
  const bool isSafe = action != SQLITE_PRAGMA || std::string_view(name) == "writable_schema" ||
                      std::string_view(name) == "user_version";
  return isSafe && action != SQLITE_ATTACH ? SQLITE_OK : SQLITE_DENY;
}

void run(const std::string& sql) {
  constexpr int kSteps = 10000;
  sqlite3* database = nullptr;
  require(sqlite3_open(kPath, &database) == SQLITE_OK);
  (void)sqlite3_set_authorizer(database, authorize, nullptr);
  sqlite3_progress_handler(
      database, kSteps, [](void* /*unused*/) { return 1; }, nullptr);
  (void)sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
  (void)sqlite3_close(database);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::usePrivateFolders();
  good = new Good;
  auto keychain = Keychain::open(kPath);
  require(keychain && import(*keychain));
  good->file = *FileManager().readFile(kPath, 1UL << 20U);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  const bool isFile = bytes.starts_with("SQLite format 3");
  removeFiles();
  fuzz::writeFile(kPath, isFile ? bytes : good->file);
  if (!isFile) {
    run(std::string(bytes));
    const auto file = FileManager().readFile(kPath, 1UL << 24U);
    if (!file || *file == good->file) return 0;
  }

  auto keychain = Keychain::open(kPath);
  if (!keychain) return 0;
  const auto items = keychain->items();
  // A label that a good keychain does not have: decoding keys would take most of the time.
  (void)keychain->identities("x");
  if (import(*keychain)) {
    const auto certificates = keychain->certificates();
    require(certificates && std::any_of(certificates->begin(), certificates->end(), [](auto& one) {
              return *one.der() == *good->certificate.der();
            }));
  }
  if (!items) return 0;
  for (const KeychainItem& item : *items) {
    if (!keychain->deleteItem(item.id)) continue;
    const auto left = keychain->items();
    require(!left || std::none_of(left->begin(), left->end(),
                                  [&](const auto& one) { return one.id == item.id; }));
  }
  return 0;
}
