// Bytes as hexadecimal digits.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Two lower-case digits for each byte.
std::string hexadecimal(std::string_view bytes);

// The byte as it stands in place of itself in a URL (RFC 3986, section 2.1): "%2F".
std::string percentEncoded(char byte);

// The upper-case digits by their value.
inline constexpr std::string_view kUpperCaseDigits = "0123456789ABCDEF";

}  // namespace tessel
