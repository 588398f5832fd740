// Digests that only the holder of a key can make: what is kept of a password in memory tells
// nothing about it without the key.
#pragma once

#include <array>
#include <string_view>

#include "platform/base/result.h"
#include "platform/keychain/digest.h"

namespace tessel {

using DigestKey = std::array<unsigned char, 32>;

// A new random key; fails when the system has no random numbers.
Result<DigestKey> randomDigestKey();

// HMAC-SHA-256 (RFC 2104, FIPS 198-1) of the bytes; the error is the cryptographic library's
// reason. Any number of threads may call it.
Result<SHA256Digest> keyedDigest(const DigestKey& key, std::string_view bytes);

}  // namespace tessel
