// What of a folder clients see, whichever way they ask for it.
#pragma once

#include <optional>

#include "host/debian/mod_tessel/files/folder_reader.h"
#include "host/debian/mod_tessel/files/status.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// The status of an entry that is listed: a file, a folder, or what a link leads to that may be
// followed. None for private names, and for what is neither or has just gone. `folder` is the
// folder's O_PATH descriptor, `opened` the reader's.
std::optional<FileStatus> listedStatus(const FileDescriptor& folder, int opened,
                                       const FolderReader::Entry& entry);

}  // namespace tessel
