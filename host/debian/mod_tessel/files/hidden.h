// Names that clients never see, for what is not yet, or no longer, part of a share: ".tessel-" and
// 16 hexadecimal digits. Whoever works on one holds a lock on it (flock(2)), which ends with the
// process, so that what a killed process has left can be told and removed at once.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

bool isHiddenName(std::string_view name);
// A name that nobody can guess; an Error when the system has no random numbers.
Result<std::string> newHiddenName();

// A folder of a hidden name, closed to all others, in which a tree is built before it is shown, or
// taken apart after it was. It is removed with all that is in it at the end.
class HiddenFolder {
 public:
  static Result<HiddenFolder> create(const FileDescriptor& folder);
  HiddenFolder(HiddenFolder&&) = default;
  HiddenFolder& operator=(HiddenFolder&&) = delete;
  HiddenFolder(const HiddenFolder&) = delete;
  HiddenFolder& operator=(const HiddenFolder&) = delete;
  ~HiddenFolder();

  const FileDescriptor& descriptor() const { return self_; }

 private:
  HiddenFolder() = default;

  FileDescriptor folder_;  // that it is in; none before it is made
  FileDescriptor self_;    // open for reading, holds the lock
  std::string name_;
};

// Removes what a killed process has left in a folder under this hidden name, so long ago. What
// another's hands have made or given the name, or somebody works on, stays.
void removeLeftover(const FileDescriptor& folder, const std::string& name,
                    std::chrono::seconds age = std::chrono::minutes(1));

}  // namespace tessel
