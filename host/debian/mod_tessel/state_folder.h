// The folder of the state that is kept for files: made, for Apache's user alone, before Apache's
// children start, where the package has not made it.
#pragma once

namespace tessel {

void registerStateFolder();

}  // namespace tessel
