// The order in which people look for names: capitals and accents do not count, and numbers do by
// their value, so that "Page 9" comes before "page 10".
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Names are in order when these are, by their bytes. Names that differ in nothing that counts have
// the same, so that the names themselves have to decide between them.
std::string naturalKey(std::string_view name);

}  // namespace tessel
