#include "platform/keychain/keyed_digest.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include "platform/keychain/openssl.h"

namespace tessel {

Result<DigestKey> randomDigestKey() {
  DigestKey key{};
  if (RAND_priv_bytes(key.data(), static_cast<int>(key.size())) != 1) return opensslError();
  return key;
}

Result<SHA256Digest> keyedDigest(const DigestKey& key, std::string_view bytes) {
  SHA256Digest digest{};
  size_t length = 0;
  if (EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA256", nullptr, key.data(), key.size(),
                reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data(),
                digest.size(), &length) == nullptr) {
    return opensslError();
  }
  return digest;
}

}  // namespace tessel
