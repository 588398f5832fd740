#include "host/debian/tessel_host/folder_access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

#include "platform/base/text.h"
#include "platform/files/path.h"

namespace tessel {

namespace {

constexpr int kMostLinks = 40;  // as the kernel has it (path_resolution(7))

bool isAllowed(const std::string& path, int wanted) {
  return ::faccessat(AT_FDCWD, path.c_str(), wanted, AT_EACCESS) == 0;
}

std::string reasonFor(const std::string& path) {
  const int reason = errno;
  if (reason == EACCES) {
    return std::string(kApacheUser) + " may not enter " + shown(parentDirectory(path));
  }
  if (reason == ENOENT) return shown(path) + " does not exist";
  return shown(path) + ": " + std::strerror(reason);
}

}  // namespace

std::string obstacleOnTheWayTo(const std::string& path) {
  std::string left = path;
  std::string way = "/";
  int links = 0;
  while (!left.empty()) {
    const size_t begin = left.find_first_not_of('/');
    if (begin == std::string::npos) break;
    const size_t end = left.find('/', begin);
    const std::string name = left.substr(begin, end - begin);
    left = end == std::string::npos ? "" : left.substr(end);
    if (name == ".") continue;
    if (name == "..") {
      way = parentDirectory(way);
      continue;
    }
    const std::string next = appendPathComponent(way, name);
    struct stat status {};
    if (::lstat(next.c_str(), &status) != 0) return reasonFor(next);
    if (!S_ISLNK(status.st_mode)) {
      way = next;
      continue;
    }
    if (status.st_uid != 0) return shown(next) + " is a link that is not root's";
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlink(next.c_str(), target.data(), target.size());
    if (length < 0) return reasonFor(next);
    if (++links > kMostLinks) return shown(next) + ": too many links";
    left.insert(0, "/").insert(0, target.data(), static_cast<size_t>(length));
    if (left.front() == '/') way = "/";
  }
  struct stat status {};
  if (::lstat(way.c_str(), &status) != 0) return reasonFor(way);
  if (!S_ISDIR(status.st_mode)) return shown(way) + " is no folder";
  if (!isAllowed(way, X_OK)) return std::string(kApacheUser) + " may not enter it";
  if (!isAllowed(way, R_OK)) return std::string(kApacheUser) + " may not read it";
  if (!isAllowed(way, W_OK)) {
    return errno == EROFS ? "it is on a file system that is mounted read-only"
                          : std::string(kApacheUser) + " may not write in it";
  }
  return "";
}

}  // namespace tessel
