// Where the users of this host keep their files.
#pragma once

#include <optional>
#include <string>

namespace tessel {

// The home directory that the user database has for a user; for the empty name, for the effective
// user. None for an unknown user and for one without a home directory.
std::optional<std::string> homeDirectory(const std::string& user);

}  // namespace tessel
