// What an administrator wrote in tessel.plist that does not mean what it looks like.
#pragma once

#include <string>
#include <vector>

#include "platform/property_list/property_list.h"

namespace tessel {

// A line for each key that nobody reads, each value of a type that its reader cannot take, and a
// group that this machine does not know. Addresses, ports and unusable texts are apacheStart's.
std::vector<std::string> settingsRemarks(const PropertyList& settings);

}  // namespace tessel
