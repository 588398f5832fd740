// Accounts without a password. PAM, as Debian sets it up, lets them in with any.
#pragma once

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// Their names in a file like /etc/passwd (passwd(5)) or /etc/shadow (shadow(5)), which root alone
// may read. No names when there is no such file, an error when it cannot be read to its end.
Result<std::vector<std::string>> openAccounts(const std::string& file);

}  // namespace tessel
