#include "host/debian/mod_tessel/files/status.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "platform/base/file_time.h"

namespace tessel {

namespace {

constexpr std::int64_t kPerSecond = 1'000'000'000;

Result<FileStatus> statusAt(int folder, const char* name, int flags) {
  struct statx found;  // which the kernel fills
  constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
  if (::statx(folder, name, flags | AT_NO_AUTOMOUNT, kWanted, &found) != 0) {
    return systemError("cannot be looked at", errno);
  }
  FileStatus status;
  status.identity.device = ::makedev(found.stx_dev_major, found.stx_dev_minor);
  status.identity.inode = found.stx_ino;
  status.identity.birth = (found.stx_mask & STATX_BTIME) != 0 ? nanosecondsOf(found.stx_btime) : 0;
  status.mode = found.stx_mode;
  status.owner = found.stx_uid;
  status.group = found.stx_gid;
  status.size = static_cast<off_t>(found.stx_size);
  status.modified = nanosecondsOf(found.stx_mtime);
  status.changed = nanosecondsOf(found.stx_ctime);
  return status;
}

}  // namespace

timespec timespecOf(std::int64_t nanoseconds) {
  std::int64_t seconds = nanoseconds / kPerSecond;
  std::int64_t rest = nanoseconds % kPerSecond;
  if (rest < 0) {
    rest += kPerSecond;
    --seconds;
  }
  return {seconds, rest};
}

Result<FileStatus> statusOf(int descriptor) { return statusAt(descriptor, "", AT_EMPTY_PATH); }

Result<FileStatus> statusIn(int folder, const char* name) {
  return statusAt(folder, name, AT_SYMLINK_NOFOLLOW);
}

}  // namespace tessel
