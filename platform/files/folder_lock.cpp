#include "platform/files/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

namespace tessel {

Result<FileDescriptor> lockFolder(const std::string& path) {
  const auto failed = [&path] {
    return Error{"cannot lock " + path + ": " + std::strerror(errno)};
  };
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return failed();
  while (::flock(folder.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return failed();
  }
  return folder;
}

}  // namespace tessel
