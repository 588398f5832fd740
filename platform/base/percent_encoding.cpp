#include "platform/base/percent_encoding.h"

#include <array>

#include "platform/base/hexadecimal.h"

namespace tessel {

void appendPercentEncoded(std::string& text, std::string_view bytes) {
  static constexpr auto kUnreserved = [] {
    std::array<bool, 256> table{};
    for (const char c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789-._~")) {
      table[static_cast<unsigned char>(c)] = true;
    }
    return table;
  }();
  for (size_t start = 0; start < bytes.size();) {
    size_t end = start;
    while (end < bytes.size() && kUnreserved[static_cast<unsigned char>(bytes[end])]) ++end;
    text += bytes.substr(start, end - start);
    if (end < bytes.size()) {
      const unsigned byte = static_cast<unsigned char>(bytes[end++]);
      const std::array<char, 3> encoded{'%', kUpperCaseDigits[byte >> 4U],
                                        kUpperCaseDigits[byte & 0xFU]};
      text.append(encoded.data(), encoded.size());
    }
    start = end;
  }
}

std::string percentEncoded(std::string_view bytes) {
  std::string encoded;
  appendPercentEncoded(encoded, bytes);
  return encoded;
}

}  // namespace tessel
