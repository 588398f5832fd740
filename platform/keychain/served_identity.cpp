#include "platform/keychain/served_identity.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>

#include "platform/keychain/openssl.h"

namespace tessel {

namespace {

int handOver(char* buffer, int size, int /*isWriting*/, void* given) {
  const auto* passPhrase = static_cast<const std::string_view*>(given);
  if (passPhrase->size() > static_cast<size_t>(size)) return -1;
  std::memcpy(buffer, passPhrase->data(), passPhrase->size());
  return static_cast<int>(passPhrase->size());
}

}  // namespace

Status keyFitsCertificate(std::string_view certificatePEM, std::string_view keyPEM,
                          std::string_view passPhrase) {
  const OpenSSLPointer<X509, X509_free> certificate(
      PEM_read_bio_X509(memoryBIO(certificatePEM).get(), nullptr, nullptr, nullptr));
  if (!certificate) {
    return Error{"the certificate cannot be read: " + opensslError().description};
  }
  const OpenSSLPointer<EVP_PKEY, EVP_PKEY_free> key(
      PEM_read_bio_PrivateKey(memoryBIO(keyPEM).get(), nullptr, handOver, &passPhrase));
  if (!key) {
    return Error{"the key cannot be opened with its pass phrase: " + opensslError().description};
  }
  if (X509_check_private_key(certificate.get(), key.get()) != 1) {
    return Error{"the key is not the certificate's: " + opensslError().description};
  }
  return {};
}

}  // namespace tessel
