#include "platform/files/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platform/base/system_error.h"

namespace tessel {

Result<FileDescriptor> lockFolder(const std::string& path) {
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return systemError("cannot lock " + path);
  while (::flock(folder.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return systemError("cannot lock " + path);
  }
  return folder;
}

}  // namespace tessel
