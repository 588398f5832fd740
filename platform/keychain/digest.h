// SHA-256 digests.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace tessel {

using SHA256Digest = std::array<unsigned char, 32>;

// The SHA-256 digest (FIPS 180-4) of the bytes; none when the cryptographic library refuses.
std::optional<SHA256Digest> sha256(std::string_view bytes);

}  // namespace tessel
