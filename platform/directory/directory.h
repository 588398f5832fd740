// The host's directory service as far as shares need it: share-point records by name, each with
// multi-valued text attributes. They are property-list files in a folder of the local node that
// other services and administrators read and edit as well; docs/share-records.md has the format
// and the locking rule. Any number of threads may call all of this.
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

// What differs between any two states of a record's file, however it was changed. The one
// exception: an edit in place that keeps the size, within one tick of the file system's clock.
struct RecordStamp {
  dev_t device;
  ino_t inode;
  off_t size;
  std::int64_t modified;  // nanoseconds since the epoch, as is the next
  std::int64_t changed;
  bool operator==(const RecordStamp&) const = default;
};

// One record. What it says is read when it is asked for, since other programs may change it; a
// change is made to the record as it is by then, under the lock of all records.
class DirectoryRecord {
 public:
  // The name of its file in the folder of the records.
  const std::string& fileName() const { return fileName_; }

  // The path of that file.
  std::string path() const;

  // For one call of the system. None when there is no regular file in its place, an error with
  // errno's number when that cannot be told.
  Result<std::optional<RecordStamp>> stamp() const;

  // All attributes that are present. An error when the record is gone or its file is unreadable;
  // its code is 0 when the file is no record, whoever reads it, and errno's number otherwise.
  Result<RecordAttributes> details() const;

  // The values of one attribute, empty when it is absent. An error as above.
  Result<AttributeValues> values(const std::string& attribute) const;

  // Gives one attribute these values and leaves the others alone. When it fails (the record is
  // gone, a value is no text that a property list can hold, the file cannot be replaced) the record
  // stays as it was.
  Status setValues(const std::string& attribute, const AttributeValues& values) const;

  // Deletes the record. Fails when it is no longer what it was when it was looked up: whoever
  // decided to delete it did not know of the change.
  Status remove() const;

 private:
  friend class DirectoryNode;
  explicit DirectoryRecord(std::string fileName) : fileName_(std::move(fileName)) {}

  std::string fileName_;
  std::optional<std::string> seen_;  // the bytes of its file when it was looked up by name
};

// Whether the host has a directory service: an error with errno's number when it has none, or when
// that cannot be told.
Status findDirectoryService();

// The host's local directory node with its share-point records. It holds nothing open, so that any
// number of threads may use one.
class DirectoryNode {
 public:
  // An error as above when the directory service has no local node.
  static Result<DirectoryNode> open();

  // All share points in byte order of their files' names, whether or not the files are readable.
  // Empty where no folder for them has been made yet; an error when it cannot be read.
  Result<std::vector<DirectoryRecord>> sharePoints() const;

  // The share point of this name, which is the first value of its name attribute. It is looked for
  // in the file that is named after it (record_name.h), where createSharePoint() puts it, and only
  // when that is another's or not there in all others, in their order. None when no record has the
  // name, an error when what stands in the file named after it cannot be read as a record.
  Result<std::optional<DirectoryRecord>> sharePoint(const std::string& name) const;

  // The record in the file that is named after this name, whatever it says and whether or not there
  // is one. It has no file where there is no node.
  static DirectoryRecord sharePointInPlaceOf(std::string_view name);

  // Makes a share point of this name with these attributes beside the name. Fails when anything
  // stands in its file's place, even if it is no record, when the name or a value is no text that a
  // property list can hold, and when the file cannot be made.
  Status createSharePoint(const std::string& name, const RecordAttributes& attributes) const;

 private:
  DirectoryNode() = default;
};

}  // namespace tessel
