// Which folder is published under which name, straight from the share-point records: whatever
// tesselctl, another service or an administrator's editor does to a record counts at the next
// look-up.
#pragma once

#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "platform/directory/directory.h"

namespace tessel {

class ShareFolders {
 public:
  // The folder of the WebDAV share of this name, an absolute path that may lead to nothing. None
  // when there is no such record, it cannot be read, or it is not shared over WebDAV. Any number of
  // threads may ask. A look-up takes one stat(2) unless the record's file has changed.
  std::optional<std::string> folder(const std::string& name);

  // The names that have a folder, in byte order of their records' files.
  std::vector<std::string> names();

 private:
  struct Entry {
    RecordStamp stamp;
    std::optional<std::string> folder;
  };

  std::shared_mutex mutex_;
  std::map<std::string, Entry> entries_;  // no more than there are records
};

}  // namespace tessel
