// The locks by which programs take turns: exclusive flock(2)s on folders and files that only root
// can open, so that nobody else can make a run wait. A lock is held until its descriptor is closed
// or the process dies.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// Waits as long as it takes until no other process holds the lock of this file, which is made
// (0600) if need be and closed to everybody else if it is not.
Result<FileDescriptor> lockFile(const std::string& path);

// How long a lock is waited for, and who is told of it.
struct LockPatience {
  std::chrono::milliseconds longestWait;
  std::chrono::milliseconds longestSilence;  // then `tell` is called once
  // Gets the process that holds the lock as "process 123 (name)", or "another process".
  std::function<void(const std::string& holder)> tell;
};

// The same for a folder, which has to be there, with a limit. None when the wait was in vain.
Result<std::optional<FileDescriptor>> lockFolder(const std::string& path,
                                                 const LockPatience& patience);

}  // namespace tessel
