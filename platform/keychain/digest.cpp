#include "platform/keychain/digest.h"

#include <openssl/evp.h>

#include "platform/keychain/openssl.h"

namespace tessel {

Result<SHA256Digest> sha256(std::string_view bytes) {
  SHA256Digest digest{};
  size_t length = digest.size();
  if (EVP_Q_digest(nullptr, "SHA256", nullptr, bytes.data(), bytes.size(), digest.data(),
                   &length) != 1) {
    return opensslError();
  }
  return digest;
}

}  // namespace tessel
