// Accounts without a password. PAM, as Debian sets it up, lets them in with any.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessel {

// Their names in a file like /etc/shadow (shadow(5)); none when it cannot be read, which takes
// root.
std::optional<std::vector<std::string>> openAccounts(const char* shadowFile);

}  // namespace tessel
