#include "platform/keychain/random.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <array>
#include <string_view>

namespace tessel {

std::optional<std::uint32_t> randomNonZeroNumber() {
  std::array<unsigned char, sizeof(std::uint32_t)> bytes{};
  std::uint32_t number = 0;
  while (number == 0) {
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return std::nullopt;
    for (const unsigned char byte : bytes) number = (number << 8U) | byte;
  }
  return number;
}

std::optional<Secret> randomUUID() {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::array<unsigned char, 16> bytes{};
  if (RAND_priv_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return std::nullopt;
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);  // variant of RFC 4122
  std::array<char, 36> text{};
  char* out = text.data();
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *out++ = '-';
    *out++ = kDigits[bytes[i] >> 4U];
    *out++ = kDigits[bytes[i] & 0xFU];
  }
  Secret uuid{std::string_view(text.data(), text.size())};
  OPENSSL_cleanse(text.data(), text.size());
  OPENSSL_cleanse(bytes.data(), bytes.size());
  return uuid;
}

}  // namespace tessel
