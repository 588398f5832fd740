// What the host says about itself and about who runs this process.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tessel {

uid_t effectiveUserID();

// The host's name as gethostname(2) gives it into a buffer of 255 bytes. None when the call fails
// or the name is not UTF-8.
std::optional<std::string> hostName();

// The home directory that the user database has for a user; for the empty name, for the effective
// user. None for an unknown user and for one without a home directory.
std::optional<std::string> homeDirectory(const std::string& user);

// The two-letter territory (ISO 3166-1) of the current locale, which is the first of LC_ALL and
// LANG that is set and not empty, whether or not it is installed: AT for de_AT.UTF-8. None for
// locales without one (C, POSIX, es_419).
std::optional<std::string> localeCountryCode();

// The file that this process runs, as an absolute path without links. None when it is gone.
std::optional<std::string> executablePath();

}  // namespace tessel
