#include "platform/keychain/private_key.h"

#include <openssl/decoder.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>
#include <utility>
#include <vector>

#include "platform/keychain/openssl.h"

namespace tessel {

namespace {

std::shared_ptr<EVP_PKEY> owned(EVP_PKEY* key) { return {key, EVP_PKEY_free}; }

// Called by OpenSSL when a key is encrypted: notes that, and declines.
int refusePassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* asked) {
  *static_cast<bool*>(asked) = true;
  return -1;
}

struct DecodedKey {
  std::shared_ptr<EVP_PKEY> key;  // null when there is none
  bool isEncrypted = false;
};

// A private key of one of the kinds that TLS servers have. Others are not tried: from the parts of
// a DSA key the library computes its public half, which can be made to take hours.
DecodedKey decodeKey(std::string_view bytes, const char* form) {
  constexpr std::array kKinds{"RSA", "EC", "ED25519", "ED448", "RSA-PSS"};
  for (const char* kind : kKinds) {
    EVP_PKEY* key = nullptr;
    const OpenSSLPointer<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free> decoder(
        OSSL_DECODER_CTX_new_for_pkey(&key, form, nullptr, kind, EVP_PKEY_KEYPAIR, nullptr,
                                      nullptr));
    bool isEncrypted = false;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t left = bytes.size();
    const bool decoded =
        decoder &&
        OSSL_DECODER_CTX_set_pem_password_cb(decoder.get(), refusePassPhrase, &isEncrypted) == 1 &&
        OSSL_DECODER_from_data(decoder.get(), &data, &left) == 1;
    ERR_clear_error();
    const auto result = owned(key);
    if (decoded || isEncrypted) return {decoded ? result : nullptr, isEncrypted};
  }
  return {};
}

bool hasTraditionalForm(const EVP_PKEY* key) {
  return EVP_PKEY_is_a(key, "RSA") == 1 || EVP_PKEY_is_a(key, "EC") == 1;
}

// The first block of a PEM file that is a private key's, as it stands there; empty when there is
// none. Parameters, certificates and remarks may come before it.
std::string_view keyBlock(std::string_view file) {
  constexpr std::string_view kBegin = "-----BEGIN ";
  constexpr std::string_view kKey = "PRIVATE KEY-----";
  for (size_t at = file.find(kBegin); at != std::string_view::npos;
       at = file.find(kBegin, at + 1)) {
    const std::string_view line = file.substr(at, file.find('\n', at) - at);
    if (line.find(kKey) != std::string_view::npos) return file.substr(at);
  }
  return {};
}

}  // namespace

Result<PrivateKey> PrivateKey::generateRSA(unsigned bits) {
  auto key = owned(EVP_RSA_gen(bits));
  if (!key) return opensslError();
  return PrivateKey(std::move(key));
}

Result<PrivateKey> PrivateKey::fromDER(std::string_view der) {
  auto decoded = decodeKey(der, "DER");
  if (!decoded.key) return Error{"cannot decode the private key"};
  return PrivateKey(std::move(decoded.key));
}

Result<PrivateKey> PrivateKey::fromFile(std::string_view bytes) {
  const bool isPEM = bytes.find("-----BEGIN ") != std::string_view::npos;
  auto decoded = isPEM ? decodeKey(keyBlock(bytes), "PEM") : decodeKey(bytes, "DER");
  if (decoded.isEncrypted) return Error{"is encrypted; decrypt it first"};
  if (!decoded.key) return Error{"holds no private key in PEM or DER form"};
  if (!hasTraditionalForm(decoded.key.get())) {
    return Error{
        "holds a key of a kind that has no encrypted form for Apache; RSA and elliptic "
        "curves have one"};
  }
  PrivateKey key(std::move(decoded.key));
  if (const Status fit = key.halvesFit(); !fit) {
    return Error{"holds a damaged private key: " + fit.error().description};
  }
  return key;
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

Status PrivateKey::halvesFit() const {
  if (!hasTraditionalForm(key_.get())) return {};
  using Digesting = OpenSSLPointer<EVP_MD_CTX, EVP_MD_CTX_free>;
  const auto* text = reinterpret_cast<const unsigned char*>("text");
  constexpr size_t kTextSize = 4;
  const Digesting signing(EVP_MD_CTX_new());
  const Digesting verifying(EVP_MD_CTX_new());
  std::vector<unsigned char> signature(static_cast<size_t>(EVP_PKEY_get_size(key_.get())));
  size_t size = signature.size();
  const bool fit =
      signing && verifying &&
      EVP_DigestSignInit(signing.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
      EVP_DigestSign(signing.get(), signature.data(), &size, text, kTextSize) == 1 &&
      EVP_DigestVerifyInit(verifying.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
      EVP_DigestVerify(verifying.get(), signature.data(), size, text, kTextSize) == 1;
  ERR_clear_error();
  if (fit) return {};
  return Error{"its private half does not fit its public half"};
}

Result<SHA256Digest> PrivateKey::publicKeyDigest() const {
  const auto der = publicKeyDER();
  if (!der) return der.error();
  return sha256(*der);
}

}  // namespace tessel
