// From a path to what stands there, by descriptor: what was looked at and judged is what is read,
// written and sent, whatever other processes rename meanwhile.
//
// A component is opened only with O_PATH before it is known what it is, so that nothing happens to
// a pipe or a device. The kernel never follows a link: the text of one is read from its descriptor
// and walked here, a component at a time, and then its owner is judged.
#pragma once

#include <string>
#include <string_view>

#include "host/debian/mod_tessel/files/status.h"
#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// A name in a folder and what stands there.
struct Place {
  FileDescriptor folder;  // O_PATH; none for the top of a share, and where the folder is missing
  std::string name;       // in the folder
  FileDescriptor item;    // O_PATH, never a link's in `Found::target`; none when nothing is there
  FileStatus status;      // of the item

  bool exists() const { return static_cast<bool>(item); }
  bool hasFolder() const { return static_cast<bool>(folder); }
};

struct Found {
  // What the path means, links followed. Its folder is missing when the path goes on below what
  // does not exist or is a file.
  Place target;
  // The link that stands at the path itself, if one does: to delete or rename means the link.
  Place link;
  bool wasLed = false;       // by a link, on the way or at the end
  bool isBelowFile = false;  // the path goes on below a file
};

// Whether a name is kept from clients: our own (see hidden.h), and what an earlier version's
// mod_dav_fs has left in shares.
bool isPrivateName(std::string_view name);

// A folder of this absolute path, for O_PATH. A link on the way is followed when root owns it.
Result<FileDescriptor> openSharedFolder(const std::string& path);

// What a path without ".." means below a folder, which is nothing at all when it is empty or only
// slashes. A link is followed when root, or the owner of what it leads to, owns it. Errors: EACCES
// for a link that must not be followed or leads to nothing, for "." and "..", and for what is
// neither file nor folder; ENOENT for private names; and what the system says.
Result<Found> findBelow(const FileDescriptor& top, std::string_view path);

// Opens what an O_PATH descriptor stands for, and nothing else, with these flags of open(2).
Result<FileDescriptor> reopen(const FileDescriptor& item, int flags);
// The path by which the system reaches what a descriptor stands for.
std::string descriptorPath(int descriptor);
Result<FileDescriptor> duplicate(const FileDescriptor& descriptor);

}  // namespace tessel
