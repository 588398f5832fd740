// Publishing a folder over WebDAV.
#pragma once

#include <string>

namespace tessel {

enum class ShareAddition { Failed, Updated, Created };

// Shares a folder under the last name of its path: makes a share point of that name, or updates the
// one there is, whatever folder it has. Prints what it does, and why it fails when the folder is
// refused or its record cannot be made or changed.
ShareAddition addShare(const std::string& path);

}  // namespace tessel
