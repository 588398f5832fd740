// What state is kept for: a file or folder of this host, by its own path and by what tells it from
// every other that may come to stand there. Two shares, or a link inside one, that lead to the same
// file so lead to the same properties and locks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace tessel {

// What stands at a path. A number of an inode alone would not do: file systems give it to the next
// file as soon as one is gone. The time of birth does; it cannot be set. Numbers of devices change
// from boot to boot on some file systems, so they count only where there is no time of birth.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;  // 0: nothing stands there
  std::int64_t birth = 0;   // nanoseconds since 1970; 0 where the file system keeps none

  bool exists() const { return inode != 0; }
  // Whether the two are one file.
  bool isSameFile(const FileIdentity& other) const {
    if (inode != other.inode || birth != other.birth) return false;
    return birth != 0 || device == other.device;
  }
};

struct File {
  // Absolute, as the kernel tells it: no link on the way, no "." or "..", no slash at the end but
  // that of "/". Bytes, not text.
  std::string path;
  FileIdentity identity;
  // The path by which a client came, when a link on the way makes it differ from `path`; else
  // empty. Locks on folders of this path cover the file as well.
  std::string linkedPath = {};
};

// Of an open file, a descriptor with O_PATH included: one statx(2). An Error when that fails.
Result<FileIdentity> identityOf(int descriptor);
// Of what stands at a path, a link there not followed; one that does not exist() when there is
// nothing. An Error when the kernel does not say.
Result<FileIdentity> identityAt(const std::string& path);
// The path of an open file or folder, from /proc/self/fd. An Error when it has none any more.
Result<std::string> pathOf(int descriptor);

// "/a/b" and "c" make "/a/b/c"; "/" and "c" make "/c".
std::string pathInside(std::string_view folder, std::string_view name);

}  // namespace tessel
