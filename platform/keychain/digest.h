// SHA-256 digests.
#pragma once

#include <array>
#include <string_view>

#include "platform/base/result.h"

namespace tessel {

using SHA256Digest = std::array<unsigned char, 32>;

// The SHA-256 digest (FIPS 180-4) of the bytes. Fails when the cryptographic library refuses.
Result<SHA256Digest> sha256(std::string_view bytes);

// A digest's bytes, valid as long as it is.
inline std::string_view bytesOf(const SHA256Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

}  // namespace tessel
