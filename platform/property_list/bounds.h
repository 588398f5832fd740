// How large and how deep a property list may be. Whoever reads one holds to it, so that no file can
// take more memory, stack or time than that.
#pragma once

#include <cstddef>

namespace tessel {

inline constexpr std::size_t kLargestPropertyList = 16UL << 20U;  // bytes
inline constexpr std::size_t kDeepestPropertyList = 512;          // arrays and dictionaries

}  // namespace tessel
