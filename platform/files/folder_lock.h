// The lock by which programs that change files of one folder take turns.
#pragma once

#include <string>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// Waits without limit until no other process holds the lock of this folder, an exclusive flock(2)
// on the folder itself. Closing the descriptor frees it, as does the death of the process.
Result<FileDescriptor> lockFolder(const std::string& path);

}  // namespace tessel
