// Files of certificates and private keys, PEM or DER.
#include "platform/keychain/certificate.h"

#include "fuzz/fuzz.h"
#include "platform/base/text.h"
#include "platform/keychain/private_key.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

namespace {

void checkCertificate(const Certificate& certificate) {
  const auto der = certificate.der();
  const auto again = Certificate::fromDER(*der);
  require(again && *again->der() == *der);
  const auto pem = certificate.pem();
  const auto fromPEM = Certificate::allFromFile(*pem);
  require(fromPEM && fromPEM->size() == 1 && *fromPEM->front().der() == *der);
  require(isUTF8(certificate.commonName().value_or("")));
  const auto day = certificate.expiryDay();
  require(!day || day->size() == std::string_view("YYYY-MM-DD").size());
  (void)certificate.isSelfSigned();
  (void)certificate.isForHost("127.2");
  (void)certificate.publicKeyDigest();
}

void checkKey(const PrivateKey& key) {
  const auto der = key.der();
  const auto digest = key.publicKeyDigest();
  (void)key.encryptedPEM(Secret{"pass phrase"});
  (void)key.halvesFit();
  if (!der || !digest) return;
  const auto again = PrivateKey::fromDER(der->view());
  require(again && *again->publicKeyDigest() == *digest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  if (const auto key = PrivateKey::fromFile(bytes)) checkKey(*key);
  if (const auto key = PrivateKey::fromDER(bytes)) checkKey(*key);
  const auto certificates = Certificate::allFromFile(bytes);
  if (!certificates) return 0;
  require(!certificates->empty());
  for (const Certificate& certificate : *certificates) checkCertificate(certificate);
  return 0;
}
