// A file that comes into being whole or not at all: it has no name, or a hidden one where the file
// system knows no unnamed files, until all of it is there. Nothing is synced: what was published is
// in the hands of the kernel and outlives this process; after a power failure a file may be the old
// one, or lack what was written in the last seconds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "host/debian/mod_tessel/files/place.h"
#include "platform/files/access_list.h"

namespace tessel {

class NewFile {
 public:
  // A new file in this folder, which has to outlive it, with this mode less the umask (or by the
  // folder's default list).
  static Result<NewFile> create(const FileDescriptor& folder, mode_t mode);
  NewFile(NewFile&&) = default;
  NewFile& operator=(NewFile&&) = delete;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  // Leaves nothing behind unless published.
  ~NewFile();

  const FileDescriptor& descriptor() const { return file_; }
  Status write(std::string_view bytes);
  Status seek(off_t position);
  // All of another file, an open one, in the kernel where it can.
  Status copyFrom(const FileDescriptor& source);
  // In seconds since 1970.
  Status setModified(std::int64_t seconds);
  // Gives it mode, access list and extended attributes of another, an O_PATH descriptor, and its
  // group where the kernel lets this process set it. Where there is an access list, the other's
  // owner and group are named in it, so that they can do with this one what they could with theirs.
  Status takeAttributesOf(const FileDescriptor& item, const FileStatus& status);
  // Puts it in place in the folder in which it was made. What is there, a file or a link, is
  // replaced if `replaces`; else that is an EEXIST.
  Status publish(const std::string& name, bool replaces);
  // The file itself, once it was published.
  FileDescriptor release() { return std::move(file_); }

 private:
  NewFile() = default;
  // Gives it a name; false, with errno, when it cannot have that.
  bool link(const std::string& name) const;
  Status giveHiddenName();
  void keepRights(AccessList& list, const FileStatus& replaced) const;

  const FileDescriptor* folder_ = nullptr;
  FileDescriptor file_;
  std::string hiddenName_;  // that it has now; empty for none
};

// Copies the user's extended attributes of one file to another, by their descriptorPath().
Status copyUserAttributes(const std::string& from, const std::string& to);

}  // namespace tessel
