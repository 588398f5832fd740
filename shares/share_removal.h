// Withdrawing a share point from WebDAV.
#pragma once

#include <string>

namespace tessel {

// Withdraws the share point with the path's last name: deletes it unless another service has a flag
// on it. Prints what it does. False, after a message, when there is none or it cannot be changed.
bool removeShare(const std::string& path);

}  // namespace tessel
