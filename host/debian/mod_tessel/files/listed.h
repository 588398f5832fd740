// What of a folder clients see, whichever way they ask for it.
#pragma once

#include <memory>
#include <optional>

#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/files/status.h"
#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

struct Listed {
  FileStatus status;
  std::unique_ptr<Place> target;  // for a link, what it leads to; else null
};

// An entry that is listed: a file, a folder, or what a link leads to that may be followed. None for
// private names, and for what is neither or has just gone; an Error of the system for what is there
// and cannot be looked at, such as a mounted file system that does not answer. `folder` is the
// folder's O_PATH descriptor, `opened` the reader's.
Result<std::optional<Listed>> listedEntry(const FileDescriptor& folder, int opened,
                                          const FolderReader::Entry& entry);

}  // namespace tessel
