#include "platform/base/hexadecimal.h"

namespace tessel {

std::string hexadecimal(std::string_view bytes) {
  constexpr std::string_view kLowerCaseDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const unsigned byte = static_cast<unsigned char>(c);
    text += {kLowerCaseDigits[byte >> 4U], kLowerCaseDigits[byte & 0xFU]};
  }
  return text;
}

std::string percentEncoded(char byte) {
  const unsigned value = static_cast<unsigned char>(byte);
  return {'%', kUpperCaseDigits[value >> 4U], kUpperCaseDigits[value & 0xFU]};
}

}  // namespace tessel
