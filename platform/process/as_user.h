// Looking at files as another user does: only the kernel knows what modes, access lists, mounts and
// security modules together allow.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/base/result.h"

namespace tessel {

// Runs the function in a child process that has become this user, with the groups of the user and
// no privilege, and returns the text that it gave. `rootOf` names a process whose root folder
// and mounts the child has, where the system lets it. An error when there is no such user, or the
// child cannot be made, dies, says more than 256 MB or takes longer than five minutes. To be called
// by root, from a process of one thread.
Result<std::string> runAsUser(const std::string& user, std::optional<pid_t> rootOf,
                              const std::function<std::string()>& function);

}  // namespace tessel
