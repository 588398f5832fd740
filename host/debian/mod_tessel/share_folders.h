// Which folder is published under which name, straight from the share-point records: whatever
// tesselctl, another service or an administrator's editor does to a record counts at once, or a
// moment later. What cannot be read is an error and never an absence, which clients would take for
// a reason to delete their copies.
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

struct SharedFolder {
  std::string name;
  std::string folder;  // an absolute path that may lead to nothing
};

// Any number of threads may ask. Errors have errno's number.
class ShareFolders {
 public:
  // The folder of the WebDAV share of this name, an absolute path that may lead to nothing. None
  // when there is no such record, what stands there is none, or it is not shared over WebDAV; an
  // error when that cannot be told. A record that stands in the file named after it is looked at
  // unless that was just now (isRecent()), by one stat(2), and read when it has changed; another is
  // found in all of them, read once and then looked through at most once a second, so that it may
  // take a second until a change of such a one counts; after a failure, a tenth of a second.
  Result<std::optional<std::string>> folder(const std::string& name);

  // All WebDAV shares in byte order of their records' files. A record that this process may not
  // read is passed over; an error when another cannot be read.
  Result<std::vector<SharedFolder>> all();

 private:
  // What a record's file says under its stamp; none when it is no share point.
  struct KnownRecord {
    RecordStamp stamp;
    std::optional<SharePoint> share;
    std::int64_t lookedAt = 0;  // by coarseClock(); also changed by those who share the lock
  };

  Result<std::optional<SharePoint>> read(const DirectoryRecord& record);
  Result<std::optional<std::string>> misplacedFolder(const std::string& name);
  // Reads what has changed in all records, and returns those that are share points, in order.
  Result<std::vector<SharePoint>> lookThrough();

  std::shared_mutex mutex_;
  std::map<std::string, KnownRecord> records_;   // by file name
  std::map<std::string, SharePoint> misplaced_;  // by name; not in the file named after it
  Status looked_;  // for these; with an error, there may be more of them
  std::optional<std::chrono::steady_clock::time_point> lookedThrough_;
};

}  // namespace tessel
