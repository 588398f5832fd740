#include "platform/keychain/keyed_digest.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <string>

#include "platform/keychain/openssl.h"

namespace tessel {

Result<DigestKey> randomDigestKey() {
  DigestKey key{};
  if (RAND_priv_bytes(key.data(), static_cast<int>(key.size())) != 1) return opensslError();
  return key;
}

void KeyedDigest::Free::operator()(evp_mac_ctx_st* context) const { EVP_MAC_CTX_free(context); }

Result<KeyedDigest> KeyedDigest::withKey(const DigestKey& key) {
  const OpenSSLPointer<EVP_MAC, EVP_MAC_free> method(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  if (!method) return opensslError();
  Context begun(EVP_MAC_CTX_new(method.get()));
  std::string digest = "SHA256";
  const std::array<OSSL_PARAM, 2> parameters{
      OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest.data(), 0),
      OSSL_PARAM_construct_end()};
  if (!begun || EVP_MAC_init(begun.get(), key.data(), key.size(), parameters.data()) != 1) {
    return opensslError();
  }
  return KeyedDigest(std::move(begun));
}

Result<SHA256Digest> KeyedDigest::of(std::string_view bytes) const {
  SHA256Digest digest{};
  size_t length = 0;
  const Context context(EVP_MAC_CTX_dup(begun_.get()));
  if (!context ||
      EVP_MAC_update(context.get(), reinterpret_cast<const unsigned char*>(bytes.data()),
                     bytes.size()) != 1 ||
      EVP_MAC_final(context.get(), digest.data(), &length, digest.size()) != 1) {
    return opensslError();
  }
  return digest;
}

}  // namespace tessel
