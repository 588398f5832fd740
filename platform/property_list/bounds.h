// A look at a property-list file before a library parses it. The library keeps nested values on the
// stack and copies every value that a binary list refers to more than once, so that a small file
// could exhaust either; and it is lenient about how a list begins and ends.
#pragma once

#include <cstddef>
#include <string_view>

namespace tessel {

inline constexpr std::size_t kLargestPropertyList = 16UL << 20U;  // bytes
inline constexpr std::size_t kDeepestPropertyList = 512;          // arrays and dictionaries

// Whether the bytes begin like a binary property list (the text "bplist").
bool isBinaryPropertyList(std::string_view bytes);

// Whether the bytes, XML or binary, hold exactly one property list that is no larger and no deeper
// than the bounds, and whose references, in a binary one, neither form a cycle nor multiply it.
// Scalar values are not looked into, but for NUL characters in the texts of a binary list.
bool isBoundedPropertyList(std::string_view bytes);

}  // namespace tessel
