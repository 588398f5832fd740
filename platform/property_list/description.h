// The text in which a value is shown to people: the old-style property-list form.
//
//   dictionary  {            one entry a line, "KEY = VALUE;", indented by four spaces,
//                   a = b;   in byte order of the keys
//               }
//   array       (            one element a line, indented by four spaces, a comma after every
//                   a,       element but the last
//                   b
//               )
//   string      bare when it is made of ASCII letters, digits and _ $ / : . alone; otherwise in
//               double quotes, with \" \\ \n \r \t and other control bytes as \OOO (octal)
//   data        <0a1bff>, two lower-case hexadecimal digits a byte
//   others      PropertyListValue::scalarText, written like a string
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/property_list/property_list.h"

namespace tessel {

// The value's text, lines separated by "\n", without one at the end. A string or other scalar that
// is not inside an array or dictionary is itself, without quotes.
std::string description(const PropertyListValue& value);

// The text of a value that is not there.
inline constexpr const char* kMissingValue = "(null)";

// The same for a value that may be missing.
std::string description(const std::optional<PropertyListValue>& value);

// The same for an array of these strings.
std::string description(const std::vector<std::string>& strings);

}  // namespace tessel
