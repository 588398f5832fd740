// Other people's bytes in a page: whatever they are, they are text there and nothing else.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Appends what the bytes say as the content of an HTML element or of an attribute in double quotes.
// Control characters appear as their pictures, and so does a newline. Replaced by U+FFFD are bytes
// that are no UTF-8, what HTML cannot hold, and characters that turn the direction of what follows:
// with those a name could show another ending than it has.
void appendText(std::string& page, std::string_view bytes);

// The same as text that keeps to itself, whichever direction it is written in.
void appendName(std::string& page, std::string_view bytes);

}  // namespace tessel
