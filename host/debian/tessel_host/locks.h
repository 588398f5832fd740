// tessel-host locks and unlock: who locks which files of the shares, and the end of a lock whose
// client will not end it. Both are done as Apache's user, whose database it is.
#pragma once

#include <string>

namespace tessel {

// Prints a line for each lock, in the order of paths, or that there is none. Returns the exit
// status: 0, or 1 after a line on standard error when the locks cannot be read.
int listLocks();

// Ends the locks on the file or folder at this path, which may be gone, and says so. One of a
// folder above, which covers it too, and those of what is below stay; they are named. Returns the
// exit status: 0 when there was one, 1 after a line on standard error otherwise.
int unlock(const std::string& path);

}  // namespace tessel
