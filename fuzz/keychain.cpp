// A keychain file that somebody else may have made: its bytes, or SQL that is run on a good one.
#include "platform/keychain/keychain.h"

#include <unistd.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/statements.h"
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
    fuzz::runStatements(kPath, std::string(bytes));
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
