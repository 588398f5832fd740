// Readings of text that the property-list coercions and the command runner share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

// Whether the bytes are well-formed UTF-8 (RFC 3629).
bool isUTF8(std::string_view bytes);

// Whether the bytes are UTF-8 that comes back unchanged from an XML file: without the control bytes
// that XML cannot hold (all below 0x20 but tab and newline) or reads as another (carriage return),
// and without U+FFFE and U+FFFF (Extensible Markup Language 1.0, sections 2.2 and 2.11).
bool isXMLText(std::string_view bytes);

// The text without ASCII white space and newlines at both ends.
std::string trimmed(std::string_view text);

// The decimal integer at the start of the text after white space and an optional sign; 0 when there
// is none, the nearest bound when it does not fit.
std::int32_t leadingInteger(std::string_view text);

// Whether the text says yes: after white space, an optional sign and zeros comes one of Y, y, T, t
// or a digit 1 to 9.
bool saysYes(std::string_view text);

}  // namespace tessel
