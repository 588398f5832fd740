// A folder with all that is below it, by descriptor: a link is never followed, and whatever others
// rename meanwhile, nothing is reached that was not in the folder when it was looked at.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>

#include "host/debian/tessel_host/access_rules.h"
#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// What the content of a folder takes over from it.
struct FromAbove {
  Keepers keepers;
  // The lists for what is made in the folder, before the grant and after.
  std::optional<AccessList> forNewBefore;
  std::optional<AccessList> forNewAfter;
};

struct Visited {
  int descriptor;  // O_PATH
  const std::string& path;
  const struct stat& status;  // of a folder or a regular file
  const FromAbove& above;
};

// None for a folder whose content is to be left out.
using Visitor = std::function<std::optional<FromAbove>(const Visited&)>;

// Opens the folder at an absolute path without links, from / down. Each folder on the way is handed
// to `onTheWay` when it is not null; the last one is returned.
Result<FileDescriptor> openFolder(const std::string& path,
                                  const std::function<void(const Visited&)>& onTheWay);

// Visits the folder, then its files and folders, each folder before its content. What cannot be
// looked at is told to `failed` and passed over.
void walkTree(FileDescriptor folder, const std::string& path, const Visitor& visitor,
              const std::function<void(const Error&)>& failed);

}  // namespace tessel
