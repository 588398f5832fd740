// The texts of numbers, dates and data in XML property lists, both ways. White space of XML around
// a text, and inside that of data, means nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/property_list/value.h"

namespace tessel {

// The text without blanks, tabs, newlines and carriage returns at both ends.
std::string_view withoutXMLSpace(std::string_view text);

// An optional sign and decimal digits, or 0x and hexadecimal digits without a sign, within 64 bits.
// Leading zeros mean nothing. None for everything else.
std::optional<PropertyListNode::Integer> parseInteger(std::string_view text);

// A decimal number with an optional fraction and exponent, or nan, inf or infinity in any case, all
// with an optional sign. None for everything else and for what a double cannot hold.
std::optional<double> parseReal(std::string_view text);

// YYYY-MM-DDTHH:MM:SSZ (ISO 8601), of which seconds, minutes and the whole time may be left out.
// None when there is no such day or time.
std::optional<PropertyListNode::Date> parseDate(std::string_view text);

// The bytes of base64 (RFC 4648, section 4) with its padding. None for everything else.
std::optional<std::string> parseBase64(std::string_view text);

// Adds the bytes as base64 in lines of so many characters, a multiple of four, each line between
// the indentation and a newline.
void addBase64(std::string_view bytes, std::size_t lineLength, std::string_view indentation,
               std::string& text);

// Decimal digits after a minus where there is one.
std::string integerText(const PropertyListNode::Integer& integer);

// A whole real in its decimal digits, every other in the fewest characters that give it back.
std::string realText(double real);

// YYYY-MM-DD HH:MM:SS +0000, without the fraction of a second; a date that is tens of thousands of
// years off as its seconds since 2001.
std::string dateText(const PropertyListNode::Date& date);

// YYYY-MM-DDTHH:MM:SSZ; none for a date with a fraction of a second or outside the years 1 to 9999.
std::optional<std::string> exactDateText(const PropertyListNode::Date& date);

}  // namespace tessel
