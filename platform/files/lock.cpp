#include "platform/files/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <thread>
#include <utility>

#include "platform/base/system_error.h"

namespace tessel {

namespace {

constexpr mode_t kLockFileMode = 0600;

Error cannotLock(const std::string& path) { return systemError("cannot lock " + path); }

// Who holds the lock on this file, by /proc/locks (proc(5)), whose lines are
//   NUMBER: FLOCK ADVISORY WRITE PROCESS MAJOR:MINOR:INODE START END
// with the device in hexadecimal. Waiting processes have "->" after the number.
std::string holderOf(const FileDescriptor& file) {
  struct stat status {};
  (void)::fstat(file.get(), &status);
  std::array<char, 64> wanted{};
  (void)std::snprintf(wanted.data(), wanted.size(), "%02x:%02x:%ju", ::major(status.st_dev),
                      ::minor(status.st_dev), static_cast<std::uintmax_t>(status.st_ino));
  std::ifstream locks("/proc/locks");
  std::string number;
  std::string kind;
  std::string mode;
  std::string access;
  std::string process;
  std::string place;
  std::string rest;
  while (locks >> number >> kind) {
    if (kind == "FLOCK" && locks >> mode >> access >> process >> place && place == wanted.data()) {
      std::string name;
      std::getline(std::ifstream("/proc/" + process + "/comm"), name);
      return "process " + process + (name.empty() ? "" : " (" + name + ")");
    }
    std::getline(locks, rest);
  }
  return "another process";
}

}  // namespace

Result<FileDescriptor> lockFile(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor file(::open(path.c_str(), kFlags));
  if (!file && errno == ENOENT) {
    file = FileDescriptor(::open(path.c_str(), kFlags | O_CREAT, kLockFileMode));
  }
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return cannotLock(path);
  // A shell's flock(1) makes it for everybody.
  if ((status.st_mode & 07777U) != kLockFileMode) (void)::fchmod(file.get(), kLockFileMode);
  while (::flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return cannotLock(path);
  }
  return file;
}

Result<std::optional<FileDescriptor>> lockFolder(const std::string& path,
                                                 const LockPatience& patience) {
  constexpr std::chrono::milliseconds kPause(20);
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return cannotLock(path);
  bool told = false;
  for (std::chrono::milliseconds waited(0);; waited += kPause) {
    if (::flock(folder.get(), LOCK_EX | LOCK_NB) == 0) return std::optional(std::move(folder));
    if (errno != EWOULDBLOCK && errno != EINTR) return cannotLock(path);
    if (waited >= patience.longestWait) return std::optional<FileDescriptor>();
    if (!told && waited >= patience.longestSilence) {
      patience.tell(holderOf(folder));
      told = true;
    }
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace tessel
