// Reads XML property lists (plist(5)) strictly: a list that says anything in a form that is not the
// format's is malformed, and nothing in it is guessed.
#pragma once

#include <string_view>

#include "platform/base/result.h"
#include "platform/property_list/value.h"

namespace tessel {

// The one value in the bytes, in an encoding that expat reads (UTF-8, UTF-16, ISO-8859-1, ASCII).
// A document type is accepted and never followed; one that declares entities or attributes makes
// the list malformed, as does a reference to an entity that XML itself does not define. Attributes
// mean nothing. The error names the line and what is wrong there.
Result<PropertyListNode> readXMLPropertyList(std::string_view bytes);

}  // namespace tessel
