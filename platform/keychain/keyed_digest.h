// Digests that only the holder of a key can make: what is kept of a password in memory tells
// nothing about it without the key.
#pragma once

#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/base/result.h"
#include "platform/keychain/digest.h"

struct evp_mac_ctx_st;

namespace tessel {

using DigestKey = std::array<unsigned char, 32>;

// A new random key; fails when the system has no random numbers.
Result<DigestKey> randomDigestKey();

// HMAC-SHA-256 (RFC 2104, FIPS 198-1) with one key, prepared once for many digests. Errors are the
// cryptographic library's reasons. Any number of threads may use one.
class KeyedDigest {
 public:
  static Result<KeyedDigest> withKey(const DigestKey& key);
  Result<SHA256Digest> of(std::string_view bytes) const;

 private:
  struct Free {
    void operator()(evp_mac_ctx_st* context) const;
  };
  using Context = std::unique_ptr<evp_mac_ctx_st, Free>;
  explicit KeyedDigest(Context begun) : begun_(std::move(begun)) {}

  Context begun_;  // with the key and nothing else in it; only ever copied
};

}  // namespace tessel
