#include "platform/keychain/private_key.h"

#include <openssl/decoder.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>
#include <utility>

#include "platform/keychain/openssl.h"

namespace tessel {

namespace {

std::shared_ptr<EVP_PKEY> owned(EVP_PKEY* key) { return {key, EVP_PKEY_free}; }

// Called by OpenSSL when a key is encrypted: notes that, and declines.
int refusePassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* asked) {
  *static_cast<bool*>(asked) = true;
  return -1;
}

// A private key of one of the kinds that TLS servers have; null when there is none, or when it is
// encrypted, which is noted. Other kinds are not tried: from the parts of a DSA key the library
// computes its public half, which can be made to take hours.
EVP_PKEY* decodeKey(std::string_view bytes, const char* form, bool* encrypted) {
  constexpr std::array kKinds{"RSA", "EC", "ED25519", "ED448", "RSA-PSS"};
  EVP_PKEY* key = nullptr;
  for (const char* kind : kKinds) {
    const OpenSSLPointer<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free> decoder(
        OSSL_DECODER_CTX_new_for_pkey(&key, form, nullptr, kind, EVP_PKEY_KEYPAIR, nullptr,
                                      nullptr));
    bool asked = false;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t left = bytes.size();
    if (!decoder ||
        OSSL_DECODER_CTX_set_pem_password_cb(decoder.get(), refusePassPhrase, &asked) != 1 ||
        OSSL_DECODER_from_data(decoder.get(), &data, &left) != 1) {
      EVP_PKEY_free(std::exchange(key, nullptr));
    }
    if (asked && encrypted != nullptr) *encrypted = true;
    if (key != nullptr || asked) break;
  }
  ERR_clear_error();
  return key;
}

}  // namespace

Result<PrivateKey> PrivateKey::generateRSA(unsigned bits) {
  auto key = owned(EVP_RSA_gen(bits));
  if (!key) return opensslError();
  return PrivateKey(std::move(key));
}

Result<PrivateKey> PrivateKey::fromDER(std::string_view der) {
  auto key = owned(decodeKey(der, "DER", nullptr));
  if (!key) return Error{"cannot decode the private key"};
  return PrivateKey(std::move(key));
}

Result<PrivateKey> PrivateKey::fromFile(std::string_view bytes) {
  bool encrypted = false;
  auto key = owned(decodeKey(bytes, nullptr, &encrypted));
  if (encrypted) return Error{"is encrypted; decrypt it first"};
  if (!key) return Error{"holds no private key in PEM or DER form"};
  return PrivateKey(std::move(key));
}

Result<Secret> PrivateKey::der() const {
  const OpenSSLPointer<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free> info(
      EVP_PKEY2PKCS8(key_.get()));
  unsigned char* bytes = nullptr;
  const int length = info ? i2d_PKCS8_PRIV_KEY_INFO(info.get(), &bytes) : -1;
  if (length < 0) return opensslError();
  const auto size = static_cast<size_t>(length);
  Secret der{std::string_view(reinterpret_cast<const char*>(bytes), size)};
  OPENSSL_clear_free(bytes, size);
  return der;
}

Result<std::string> PrivateKey::encryptedPEM(const Secret& passPhrase) const {
  const std::string_view phrase = passPhrase.view();
  const BIOPointer pem(BIO_new(BIO_s_mem()));
  if (!pem || PEM_write_bio_PrivateKey_traditional(
                  pem.get(), key_.get(), EVP_aes_256_cbc(),
                  reinterpret_cast<const unsigned char*>(phrase.data()),
                  static_cast<int>(phrase.size()), nullptr, nullptr) != 1) {
    return opensslError();
  }
  return contentOf(pem.get());
}

Result<std::string> PrivateKey::publicKeyDER() const { return encoded(key_.get(), i2d_PUBKEY); }

Result<SHA256Digest> PrivateKey::publicKeyDigest() const {
  const auto der = publicKeyDER();
  if (!der) return der.error();
  return sha256(*der);
}

}  // namespace tessel
