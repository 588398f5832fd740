#include "host/debian/mod_tessel/files/folder_reader.h"

#include <fcntl.h>

#include <cerrno>

#include "host/debian/mod_tessel/files/status.h"

namespace tessel {

Result<FolderReader> FolderReader::open(const FileDescriptor& folder) {
  const int opened = ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return systemError("a folder cannot be read", errno);
  FolderReader reader;
  reader.stream_.reset(::fdopendir(opened));
  if (!reader.stream_) {
    ::close(opened);
    return systemError("a folder cannot be read", ENOMEM);
  }
  return reader;
}

Result<std::optional<FolderReader::Entry>> FolderReader::next() {
  for (;;) {
    errno = 0;
    // Each stream belongs to one thread. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const dirent* entry = ::readdir(stream_.get());
    if (entry == nullptr) {
      if (errno != 0) return systemError("a folder cannot be read", errno);
      return std::optional<Entry>();
    }
    const char* name = entry->d_name;
    const bool isDots = name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
    if (isDots) continue;
    return std::optional(Entry{name, entry->d_type});
  }
}

}  // namespace tessel
