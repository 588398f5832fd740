// tessel-host check: everything that keeps Tessel from serving, or soon will.
#pragma once

namespace tessel {

// Prints a line for each finding: what, where and what to do. With nothing to find, prints that all
// is well, unless it is to be quiet. Returns the exit status as monitoring programs understand it:
// 0 well, 1 a warning, 2 not serving, which a service that is off is not.
int check(bool isQuiet);

}  // namespace tessel
