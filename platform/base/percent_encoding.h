// Bytes as they stand in a URL between two slashes (RFC 3986, section 2.1): what is not unreserved
// is encoded, so that no character means more there than itself.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

std::string percentEncoded(std::string_view bytes);
void appendPercentEncoded(std::string& text, std::string_view bytes);

}  // namespace tessel
