// Which folder is published under which name, straight from the share-point records: whatever
// tesselctl, another service or an administrator's editor does to a record counts at the next
// look-up.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "platform/directory/directory.h"
#include "shares/share_point.h"

namespace tessel {

// Any number of threads may ask.
class ShareFolders {
 public:
  // The folder of the WebDAV share of this name, an absolute path that may lead to nothing. None
  // when there is no such record, it cannot be read, or it is not shared over WebDAV. The look-up
  // of a record that stands in the file named after it takes one stat(2) in four milliseconds
  // unless the file has changed; another is found in all of them, read once and then looked through
  // at most once a second, so that it may take a second until a change of such a one counts.
  std::optional<std::string> folder(const std::string& name);

  // The names that have a folder, in byte order of their records' files.
  std::vector<std::string> names();

 private:
  // What a record's file says under its stamp; none when it is no share point.
  struct KnownRecord {
    RecordStamp stamp;
    std::optional<SharePoint> share;
    std::int64_t lookedAt = 0;  // by coarseClock(); also changed by those who share the lock
  };

  std::optional<SharePoint> read(const DirectoryRecord& record);
  std::optional<std::string> misplacedFolder(const std::string& name);
  // Reads what has changed in all records, and returns those that are share points, in order.
  std::vector<SharePoint> lookThrough();

  std::shared_mutex mutex_;
  std::map<std::string, KnownRecord> records_;   // by file name
  std::map<std::string, SharePoint> misplaced_;  // by name; not in the file named after it
  std::optional<std::chrono::steady_clock::time_point> lookedThrough_;  // for these
};

}  // namespace tessel
