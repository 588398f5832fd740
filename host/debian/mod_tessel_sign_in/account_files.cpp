#include "host/debian/mod_tessel_sign_in/account_files.h"

#include <sys/stat.h>

#include <ctime>

#include "platform/base/coarse_clock.h"

namespace tessel {

namespace {

std::int64_t nanoseconds(const timespec& time) {
  constexpr std::int64_t kPerSecond = 1'000'000'000;
  return static_cast<std::int64_t>(time.tv_sec) * kPerSecond + time.tv_nsec;
}

}  // namespace

FileStamp fileStamp(const char* path) {
  struct stat status {};
  if (::stat(path, &status) != 0) return {};
  return {static_cast<std::int64_t>(status.st_dev), static_cast<std::int64_t>(status.st_ino),
          status.st_size, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
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
