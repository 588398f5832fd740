// Files of certificates, PEM or DER.
#include "platform/keychain/certificate.h"

#include "fuzz/fuzz.h"
#include "platform/base/text.h"

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
  (void)certificate.publicKeyDigest();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto certificates = Certificate::allFromFile(fuzz::text(data, size));
  if (!certificates) return 0;
  require(!certificates->empty());
  for (const Certificate& certificate : *certificates) checkCertificate(certificate);
  return 0;
}
