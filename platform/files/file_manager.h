// The host's files, by path. Paths are bytes and handed to the system as they are. Operations that
// change something fail with an error that names the path and the system's reason (strerror(3)),
// errno being its code; what they publish is synced to disk before they return. Any number of
// threads may call all of this, but for what touches the umask.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"
#include "platform/base/secret.h"

namespace tessel {

// The mode of a new file that other services read: it does not depend on the shell that ran the
// command.
inline constexpr mode_t kSharedFileMode = 0644;

// The mode of a new file that nobody asked a mode for, as every program has it: 0666 less the
// umask. It sets the umask and sets it back, so that no other thread may make files meanwhile.
mode_t defaultFileMode();

class FileManager {
 public:
  enum class Attributes {
    Fresh,        // defaultFileMode(), owned by this process
    KeepExisting  // those of the file that is replaced; kSharedFileMode when there is none
  };

  // Whether something exists at the path, following links: a dangling link is absent, a folder is
  // present. What cannot be looked at counts as absent.
  bool fileExistsAtPath(const std::string& path) const;

  // Whether nothing exists at the path, for certain. What cannot be looked at is not absent: who
  // goes on to open it learns why.
  bool isAbsent(const std::string& path) const;

  // Whether a folder, or a link to one, exists at the path.
  bool directoryExistsAtPath(const std::string& path) const;

  // Renames an item, a link as a link. Fails when anything stands at the destination, a dangling
  // link included; both names then stay as they were.
  Status moveItem(const std::string& from, const std::string& to) const;

  // Makes a symbolic link at the path. Fails when anything stands there.
  Status createSymbolicLink(const std::string& path, const std::string& target) const;

  // Removes one file, link or empty folder; never a tree and never a link's target.
  Status removeItem(const std::string& path) const;

  // Puts an empty file with exactly this mode at the path, in place of any file or link there. It
  // is a new file: whoever has the old one open does not see what is written later.
  Status createFile(const std::string& path, mode_t mode) const;

  // Makes a folder with exactly this mode. A folder that is there already is left as it is, and
  // that is success. It clears the umask and sets it back, as defaultFileMode() does.
  Status createDirectory(const std::string& path, mode_t mode) const;

  // Overwrites an existing regular file, which keeps its mode and owner. A write that fails leaves
  // the file empty rather than cut off.
  Status writeInPlace(const std::string& path, std::string_view bytes) const;

  // Replaces whatever file or link stands at the path with a new file of this content. When it
  // fails, the old file is whole and no temporary file is left.
  Status writeAtomically(const std::string& path, std::string_view bytes,
                         Attributes attributes) const;
  // The same, with exactly this mode and owned by this process.
  Status writeAtomically(const std::string& path, std::string_view bytes, mode_t mode) const;

  // The names in a folder, hidden ones included, "." and ".." not, in the system's order.
  Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) const;

  // The content of a regular file of at most `limit` bytes; anything else (a folder, a pipe, a
  // larger file) is an error.
  Result<std::string> readFile(const std::string& path, std::size_t limit) const;

  // The same for a file whose content must not stay in memory.
  Result<Secret> readSecretFile(const std::string& path, std::size_t limit) const;
};

}  // namespace tessel
