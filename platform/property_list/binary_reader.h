// Reads binary property lists. What XML has no form for is kept as it is: a fraction of a second,
// an integer of 128 bits, a set, half a surrogate pair, a UID. Shared values are copied, within a
// bound that lets every list through that XML of the largest size could spell out.
//
// A list is made of objects, a table of their offsets, and a trailer of 32 bytes that ends in the
// sizes of an offset and of a reference (a byte each), the number of objects, the number of the
// root and the table's offset (eight bytes each, big-endian). An object begins with a byte of kind
// and size.
#pragma once

#include <string_view>

#include "platform/base/result.h"
#include "platform/property_list/value.h"

namespace tessel {

// Whether the bytes begin like a binary property list (the text "bplist").
bool isBinaryPropertyList(std::string_view bytes);

// The list in the bytes. An error when it is malformed, nested too deep, or its values would take
// too much memory.
Result<PropertyListNode> readBinaryPropertyList(std::string_view bytes);

}  // namespace tessel
