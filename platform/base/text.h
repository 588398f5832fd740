// Readings of text and its layout in columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tessel {

// Whether the bytes are well-formed UTF-8 (RFC 3629).
bool isUTF8(std::string_view bytes);

// Whether the bytes are UTF-8 that an XML file can hold: without control bytes below 0x20 other
// than tab, newline and carriage return, and without U+FFFE and U+FFFF (XML 1.0, section 2.2).
bool isXMLText(std::string_view bytes);

// The UTF-8 text without what Unicode calls white space (the property White_Space, newlines
// included) at both ends.
std::string trimmed(std::string_view text);

// The text in one line that does nothing to a terminal: the bytes of controls and of marks that
// turn text around, those that are no UTF-8, and the backslash as \xHH.
std::string shown(std::string_view text);

// The text as one word of a command of bash, in one line: as it is where that is safe, otherwise in
// quotes.
std::string shellWord(std::string_view text);

// The text with blanks after it up to at least this many bytes.
std::string padded(std::string text, std::size_t width);

// The decimal integer at the start of the text after white space and an optional sign; 0 when there
// is none, the nearest bound when it does not fit.
std::int32_t leadingInteger(std::string_view text);

// Whether the text says yes: after white space, an optional sign and zeros comes one of Y, y, T, t
// or a digit 1 to 9.
bool saysYes(std::string_view text);

}  // namespace tessel
