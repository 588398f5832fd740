// What the kernel tells of a file, of everything that serving looks at.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "host/debian/mod_tessel/state/file.h"
#include "platform/base/result.h"
#include "platform/base/system_error.h"

namespace tessel {

struct FileStatus {
  FileIdentity identity;
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  off_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since 1970, as is the next; at most those of 2262
  std::int64_t changed = 0;

  bool isFolder() const { return S_ISDIR(mode); }
  bool isFile() const { return S_ISREG(mode); }
  bool isLink() const { return S_ISLNK(mode); }
};

// The form in which the system takes a time.
timespec timespecOf(std::int64_t nanoseconds);

// Of an open file, a descriptor with O_PATH included. The code of an Error is errno's, here and in
// all that handles the files of shares.
Result<FileStatus> statusOf(int descriptor);
// Of what has this name in an open folder; a link is not followed.
Result<FileStatus> statusIn(int folder, const char* name);

}  // namespace tessel
