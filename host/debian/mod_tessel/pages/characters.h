// Names of files are bytes; this reads them as the characters that people see.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Stands for bytes that are no UTF-8.
inline constexpr char32_t kReplacement = 0xFFFD;

// Cuts the first character off bytes that are not empty. What is not well-formed UTF-8 (RFC 3629)
// is a replacement for each part that could have begun a character, as the Unicode standard
// advises.
char32_t takeCharacter(std::string_view& bytes);

// Appends it as UTF-8; a Unicode scalar value.
void appendCharacter(std::string& text, char32_t character);

}  // namespace tessel
