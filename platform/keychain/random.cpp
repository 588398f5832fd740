#include "platform/keychain/random.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <array>
#include <string_view>

#include "platform/base/hexadecimal.h"
#include "platform/keychain/openssl.h"

namespace tessel {

Result<std::uint32_t> randomNonZeroNumber() {
  std::array<unsigned char, sizeof(std::uint32_t)> bytes{};
  std::uint32_t number = 0;
  while (number == 0) {
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return opensslError();
    for (const unsigned char byte : bytes) number = (number << 8U) | byte;
  }
  return number;
}

Result<Secret> randomUUID() {
  std::array<unsigned char, 16> bytes{};
  if (RAND_priv_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return opensslError();
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);  // variant of RFC 4122
  std::array<char, 36> text{};
  char* out = text.data();
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *out++ = '-';
    *out++ = kUpperCaseDigits[bytes[i] >> 4U];
    *out++ = kUpperCaseDigits[bytes[i] & 0xFU];
  }
  Secret uuid{std::string_view(text.data(), text.size())};
  OPENSSL_cleanse(text.data(), text.size());
  OPENSSL_cleanse(bytes.data(), bytes.size());
  return uuid;
}

}  // namespace tessel
