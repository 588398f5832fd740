// Reads a folder's names, a handful at a time.
#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

class FolderReader {
 public:
  struct Entry {
    const char* name;    // until the next call
    unsigned char type;  // DT_REG, DT_DIR, ..., DT_UNKNOWN where the file system does not say
  };

  // Of a folder, an O_PATH descriptor.
  static Result<FolderReader> open(const FileDescriptor& folder);

  // The next name, "." and ".." left out, in the system's order; none at the end.
  Result<std::optional<Entry>> next();
  // The folder, open for reading.
  int descriptor() const { return ::dirfd(stream_.get()); }

 private:
  struct Close {
    void operator()(DIR* stream) const { (void)::closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace tessel
