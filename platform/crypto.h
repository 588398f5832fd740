// Digests and random values.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/secret.h"

namespace tessel {

using SHA256Digest = std::array<unsigned char, 32>;

// The SHA-256 digest (FIPS 180-4) of the bytes; none when the cryptographic library refuses.
std::optional<SHA256Digest> sha256(std::string_view bytes);

// A number that is equally likely to be any but 0; none when the system has no random numbers.
std::optional<std::uint32_t> randomNonZeroNumber();

// The text of a new random UUID (RFC 4122, version 4), 36 characters in upper case; none when the
// system has no random numbers.
std::optional<Secret> randomUUID();

}  // namespace tessel
