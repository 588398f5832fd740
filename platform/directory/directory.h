// The host's directory service as far as shares need it: share-point records by name, each with
// multi-valued text attributes. They are property-list files in a folder of the local node that
// other services and administrators read and edit as well; docs/share-records.md has the format
// and the locking rule.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// The attribute that holds a record's name.
inline constexpr const char* kRecordNameAttribute = "dsAttrTypeStandard:RecordName";

// The values of an attribute. An attribute that has none is absent.
using AttributeValues = std::vector<std::string>;
using RecordAttributes = std::map<std::string, AttributeValues>;

// One record. What it says is read when it is asked for, since other programs may change it; a
// change is made to the record as it is by then, under the lock of all records.
class DirectoryRecord {
 public:
  // All attributes that are present; none when the record is gone or its file is unreadable.
  std::optional<RecordAttributes> details() const;

  // The values of one attribute, empty when it is absent. An error when the record is gone or its
  // file is unreadable.
  Result<AttributeValues> values(const std::string& attribute) const;

  // Gives one attribute these values and leaves the others alone. When it fails (the record is
  // gone, a value is no text that a property list can hold, the file cannot be replaced) the record
  // stays as it was.
  MaybeError setValues(const std::string& attribute, const AttributeValues& values) const;

  // Deletes the record. Fails when it is no longer what it was when it was looked up: whoever
  // decided to delete it did not know of the change.
  MaybeError remove() const;

 private:
  friend class RecordQuery;
  friend class DirectoryNode;
  explicit DirectoryRecord(std::string path) : path(std::move(path)) {}

  std::string path;
  std::optional<std::string> seen;  // the bytes of its file when it was looked up by name
};

// A record, or none and possibly a reason.
struct RecordResult {
  std::optional<DirectoryRecord> record;
  MaybeError error;
};

// All share-point records.
class RecordQuery {
 public:
  // The records in byte order of their file names, whether or not their files are readable. An
  // error when the folder cannot be read.
  Result<std::vector<DirectoryRecord>> results() const;

  // The names under which these records are looked up, in the same order.
  Result<std::vector<std::string>> names() const;

 private:
  friend class DirectoryNode;
  explicit RecordQuery(bool empty) : empty(empty) {}

  bool empty;
};

// The host's local node. Obtained from a session.
class DirectoryNode {
 public:
  // None when there are records and their folder cannot be opened. No folder means no records.
  std::optional<RecordQuery> querySharePoints() const;

  // The record of this name. None without an error when nothing stands at its place, with one when
  // what stands there cannot be read as a record.
  RecordResult sharePoint(std::string_view name) const;

  // Makes a record of this name with these attributes beside the name. Fails when anything stands
  // at its place, even if it is no record, when the name or a value is no text that a property list
  // can hold, and when the file cannot be made.
  RecordResult createSharePoint(const std::string& name, const RecordAttributes& attributes) const;

 private:
  friend class DirectorySession;
  DirectoryNode() = default;
};

// What changes with every change of a record's file, however it is made. An edit in place can leave
// all of it as it was only when the clock of the file system has not moved on in between.
struct RecordStamp {
  dev_t device;
  ino_t inode;
  off_t size;
  std::int64_t modified;  // nanoseconds since the epoch, as is the next
  std::int64_t changed;
  bool operator==(const RecordStamp&) const = default;
};

// The stamp of the share-point record of this name, for one call of the system. None when there is
// no regular file in its place.
std::optional<RecordStamp> sharePointStamp(std::string_view name);

class DirectorySession {
 public:
  // None when the host has no directory service.
  static std::optional<DirectorySession> open();

  // None when the directory service has no local node.
  std::optional<DirectoryNode> localNode() const;

 private:
  DirectorySession() = default;
};

}  // namespace tessel
