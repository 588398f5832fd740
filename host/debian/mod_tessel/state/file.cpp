#include "host/debian/mod_tessel/state/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

namespace tessel {

namespace {

constexpr unsigned kWanted = STATX_INO | STATX_BTIME;

FileIdentity identityFrom(const struct statx& status) {
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  FileIdentity identity;
  identity.device = ::makedev(status.stx_dev_major, status.stx_dev_minor);
  identity.inode = status.stx_ino;
  if ((status.stx_mask & STATX_BTIME) != 0U) {
    // Wraps far away from any time that is real; only sameness counts.
    identity.birth = static_cast<std::int64_t>(static_cast<std::uint64_t>(status.stx_btime.tv_sec) *
                                                   kNanoseconds +
                                               status.stx_btime.tv_nsec);
  }
  return identity;
}

}  // namespace

Result<FileIdentity> identityOf(int descriptor) {
  struct statx status {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, kWanted, &status) != 0) {
    return Error{"cannot examine an open file: " + std::string(std::strerror(errno))};
  }
  return identityFrom(status);
}

Result<FileIdentity> identityAt(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kWanted, &status) ==
      0) {
    return identityFrom(status);
  }
  if (errno == ENOENT || errno == ENOTDIR) return FileIdentity();
  return Error{"cannot examine " + path + ": " + std::strerror(errno)};
}

Result<std::string> pathOf(int descriptor) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  std::array<char, PATH_MAX> path{};
  const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
  if (size < 0) {
    return Error{"cannot tell the path of an open file: " + std::string(std::strerror(errno))};
  }
  const std::string found(path.data(), static_cast<std::size_t>(size));
  // What was removed has " (deleted)" added to its path, which may be a file's name as well.
  struct stat status {};
  if (found.empty() || found.front() != '/' || found.size() == path.size() ||
      ::fstat(descriptor, &status) != 0 || status.st_nlink == 0) {
    return Error{"an open file has no path any more"};
  }
  return found;
}

std::string pathInside(std::string_view folder, std::string_view name) {
  std::string path(folder);
  if (path != "/") path += '/';
  return path.append(name);
}

}  // namespace tessel
