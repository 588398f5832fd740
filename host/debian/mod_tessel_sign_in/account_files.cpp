#include "host/debian/mod_tessel_sign_in/account_files.h"

#include <sys/stat.h>

#include "platform/base/coarse_clock.h"
#include "platform/base/file_time.h"

namespace tessel {

FileStamp fileStamp(const char* path) {
  struct stat status {};
  if (::stat(path, &status) != 0) return {};
  return {static_cast<std::int64_t>(status.st_dev), static_cast<std::int64_t>(status.st_ino),
          status.st_size, nanosecondsOf(status.st_mtim), nanosecondsOf(status.st_ctim)};
}

AccountStamps AccountFiles::stamps() {
  const std::lock_guard lock(mutex_);
  if (!lookedAt_ || !isRecent(*lookedAt_)) {
    lookedAt_ = coarseClock();
    stamps_ = {fileStamp("/etc/passwd"), fileStamp("/etc/group"), fileStamp("/etc/nsswitch.conf"),
               fileStamp(kShadowFile)};
  }
  return stamps_;
}

}  // namespace tessel
