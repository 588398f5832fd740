// The host's accounts and groups, wherever it keeps them: in files, or in a directory that another
// machine has (nsswitch.conf(5)). Any number of threads may ask; a directory may make them wait.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

struct Account {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;
};

struct AccountGroup {
  gid_t group = 0;
  std::vector<std::string> members;  // those who have it beside the group of their account
};

// None when there is none of this name; an error, with errno's number, when that cannot be told:
// the process has no descriptor left, or the directory does not answer.
Result<std::optional<Account>> accountOf(const std::string& name);
Result<std::optional<AccountGroup>> groupOf(const std::string& name);

}  // namespace tessel
