// Files of private keys, PEM or DER.
#include "platform/keychain/private_key.h"

#include "fuzz/fuzz.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

namespace {

void checkKey(const PrivateKey& key) {
  const auto der = key.der();
  const auto digest = key.publicKeyDigest();
  (void)key.encryptedPEM(Secret{"pass phrase"});
  if (!der || !digest) return;
  const auto again = PrivateKey::fromDER(der->view());
  require(again && *again->publicKeyDigest() == *digest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  if (const auto key = PrivateKey::fromFile(bytes)) checkKey(*key);
  if (const auto key = PrivateKey::fromDER(bytes)) checkKey(*key);
  return 0;
}
