#include "host/debian/mod_tessel/files/space.h"

#include <sys/statvfs.h>

namespace tessel {

std::optional<Space> spaceOf(const FileDescriptor& folder) {
  struct statvfs found {};
  if (::fstatvfs(folder.get(), &found) != 0) return std::nullopt;
  return Space{found.f_bavail * found.f_frsize, (found.f_blocks - found.f_bfree) * found.f_frsize};
}

}  // namespace tessel
