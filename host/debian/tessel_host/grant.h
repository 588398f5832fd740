// tessel-host grant: lets Apache's user into a folder by access lists, and takes that back.
#pragma once

#include <string>

namespace tessel {

// Lets Apache's user pass the folders on the way to this one, where it cannot yet, and read and
// write the folder with all that is in it and will be. What it makes there, the folder's owner and
// group can change and delete as the folder's own mode lets them. Prints what it changed. Returns
// the exit status: 0 done or nothing to do, 1 after a line on standard error about what was not
// done.
int grant(const std::string& folder);

// Takes away what grant() has added there. What was there before, and what the administrator has
// changed since, stays.
int undoGrant(const std::string& folder);

}  // namespace tessel
