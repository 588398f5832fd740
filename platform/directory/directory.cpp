#include "platform/directory/directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/base/file_time.h"
#include "platform/base/system_error.h"
#include "platform/base/text.h"
#include "platform/directory/record_name.h"
#include "platform/files/file_manager.h"
#include "platform/files/lock.h"
#include "platform/files/path.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/description.h"
#include "platform/property_list/property_list.h"

namespace tessel {

namespace {

constexpr const char* kDirectoryService = "/var/lib/directory";
constexpr const char* kLocalNode = "/var/lib/directory/local";
constexpr const char* kSharePoints = "/var/lib/directory/local/sharepoints";
// Beside the folder, which everybody can open and so could lock.
constexpr const char* kSharePointsLock = "/var/lib/directory/local/.sharepoints.lock";
constexpr mode_t kRecordFolderMode = 0755;

struct RecordFile {
  std::string bytes;
  PropertyList list;
};

Result<RecordFile> readRecord(const std::string& path) {
  Result<std::string> bytes = FileManager().readFile(path, kLargestPropertyList);
  if (!bytes) return bytes.error();
  Result<PropertyList> list = PropertyList::parse(*bytes);
  if (!list) return Error{path + " " + list.error().description};
  return RecordFile{std::move(*bytes), std::move(*list)};
}

// Puts the list in the record's place, unless XML cannot give back all that other services keep
// there.
Status writeRecord(const std::string& path, const PropertyList& list) {
  const auto xml = list.xml();
  if (!xml) return Error{"cannot write " + path + ": " + xml.error().description};
  return FileManager().writeAtomically(path, *xml, FileManager::Attributes::KeepExisting);
}

Status checkValues(const std::string& attribute, const AttributeValues& values) {
  if (std::all_of(values.begin(), values.end(), isXMLText)) return {};
  return Error{"a property list cannot hold the value of " + attribute +
               ", which is not UTF-8 or has control characters"};
}

// Other programs may write a single value without an array around it, or a number for its text.
AttributeValues valuesOf(const PropertyListValue& value) {
  const auto elements = value.elements();
  if (!elements) return {description(value)};
  AttributeValues values;
  for (const PropertyListValue& element : *elements) values.push_back(description(element));
  return values;
}

Status findFolder(const char* path) {
  struct stat status {};
  if (::stat(path, &status) != 0) return systemError(path);
  return S_ISDIR(status.st_mode) ? Status() : systemError(path, ENOTDIR);
}

// The names of the record files in byte order.
Result<std::vector<std::string>> recordFiles() {
  if (FileManager().isAbsent(kSharePoints)) return std::vector<std::string>();
  auto names = FileManager().contentsOfDirectory(kSharePoints);
  if (!names) return names.error();
  std::erase_if(*names, [](const std::string& name) { return !isRecordFileName(name); });
  std::sort(names->begin(), names->end());
  return names;
}

std::string pathOf(const std::string& fileName) {
  return appendPathComponent(kSharePoints, fileName);
}

RecordAttributes attributesOf(const PropertyList& list) {
  RecordAttributes attributes;
  const auto entries = list.root().entries();
  for (const auto& [name, value] : *entries) {
    AttributeValues values = valuesOf(value);
    if (!values.empty()) attributes.emplace(name, std::move(values));
  }
  return attributes;
}

// Whether a record is the one of this name. One that says no name goes by that of its file.
bool isNamed(const PropertyList& list, const std::string& name, const std::string& fileName) {
  const auto value = list.value(kRecordNameAttribute);
  const AttributeValues names = value ? valuesOf(*value) : AttributeValues{};
  return names.empty() ? fileName == recordFileName(name) : names.front() == name;
}

}  // namespace

std::string DirectoryRecord::path() const { return pathOf(fileName_); }

Result<std::optional<RecordStamp>> DirectoryRecord::stamp() const {
  const std::string path = pathOf(fileName_);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    // Links that lead in a circle lead to no file.
    if (isAbsence(errno) || errno == ELOOP) return std::optional<RecordStamp>();
    return systemError("cannot look at " + path);
  }
  if (!S_ISREG(status.st_mode)) return std::optional<RecordStamp>();
  return std::optional(RecordStamp{status.st_dev, status.st_ino, status.st_size,
                                   nanosecondsOf(status.st_mtim), nanosecondsOf(status.st_ctim)});
}

Result<RecordAttributes> DirectoryRecord::details() const {
  const auto file = readRecord(pathOf(fileName_));
  if (!file) return file.error();
  return attributesOf(file->list);
}

Result<AttributeValues> DirectoryRecord::values(const std::string& attribute) const {
  const auto file = readRecord(pathOf(fileName_));
  if (!file) return file.error();
  const auto value = file->list.value(attribute);
  return value ? valuesOf(*value) : AttributeValues{};
}

Status DirectoryRecord::setValues(const std::string& attribute,
                                  const AttributeValues& values) const {
  if (Status valid = checkValues(attribute, values); !valid) return valid;
  const auto lock = lockFile(kSharePointsLock);
  if (!lock) return lock.error();
  auto file = readRecord(pathOf(fileName_));
  if (!file) return file.error();
  file->list.setStrings(attribute, values);
  return writeRecord(pathOf(fileName_), file->list);
}

Status DirectoryRecord::remove() const {
  const auto lock = lockFile(kSharePointsLock);
  if (!lock) return lock.error();
  const std::string path = pathOf(fileName_);
  if (seen_) {
    const auto bytes = FileManager().readFile(path, kLargestPropertyList);
    if (!bytes) return bytes.error();
    if (*bytes != *seen_) {
      return Error{path + " was changed by another program at the same time; try again"};
    }
  }
  return FileManager().removeItem(path);
}

Status findDirectoryService() { return findFolder(kDirectoryService); }

Result<DirectoryNode> DirectoryNode::open() {
  if (Status found = findFolder(kLocalNode); !found) return found.error();
  return DirectoryNode();
}

Result<std::vector<DirectoryRecord>> DirectoryNode::sharePoints() const {
  auto files = recordFiles();
  if (!files) return files.error();
  std::vector<DirectoryRecord> records;
  records.reserve(files->size());
  for (std::string& file : *files) records.push_back(DirectoryRecord(std::move(file)));
  return records;
}

Result<std::optional<DirectoryRecord>> DirectoryNode::sharePoint(const std::string& name) const {
  DirectoryRecord inPlace = sharePointInPlaceOf(name);
  const std::string path = pathOf(inPlace.fileName_);
  struct stat status {};
  const bool isThere = isRecordFileName(inPlace.fileName_) &&
                       (::lstat(path.c_str(), &status) == 0 || errno != ENOENT);
  auto file = isThere ? readRecord(path) : Error{"there is none"};
  if (file && isNamed(file->list, name, inPlace.fileName_)) {
    inPlace.seen_ = std::move(file->bytes);
    return std::optional(std::move(inPlace));
  }
  const auto others = sharePoints();
  if (!others) return others.error();
  for (DirectoryRecord other : *others) {
    if (other.fileName_ == inPlace.fileName_) continue;
    auto itsFile = readRecord(pathOf(other.fileName_));
    if (!itsFile || !isNamed(itsFile->list, name, other.fileName_)) continue;
    other.seen_ = std::move(itsFile->bytes);
    return std::optional(std::move(other));
  }
  if (isThere && !file) return file.error();
  return std::optional<DirectoryRecord>();
}

DirectoryRecord DirectoryNode::sharePointInPlaceOf(std::string_view name) {
  return DirectoryRecord(recordFileName(name));
}

Status DirectoryNode::createSharePoint(const std::string& name,
                                       const RecordAttributes& attributes) const {
  if (name.empty()) return Error{"a record needs a name"};
  PropertyList list;
  if (Status valid = checkValues(kRecordNameAttribute, {name}); !valid) return valid;
  list.setStrings(kRecordNameAttribute, {name});
  for (const auto& [attribute, values] : attributes) {
    if (Status valid = checkValues(attribute, values); !valid) return valid;
    list.setStrings(attribute, values);
  }

  if (Status made = FileManager().createDirectory(kSharePoints, kRecordFolderMode); !made) {
    return made;
  }
  const auto lock = lockFile(kSharePointsLock);
  if (!lock) return lock.error();
  const std::string path = pathOf(recordFileName(name));
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    // What cannot be looked at is not written over.
    if (!isAbsence(errno)) return systemError("cannot look at " + path);
  } else {
    const auto file = readRecord(path);
    const std::string reason = !file ? file.error().description
                               : isNamed(file->list, name, recordFileName(name))
                                   ? "another program has made the record"
                                   : "a share point of another name is in its place";
    return Error{"nothing is overwritten at " + path + ": " + reason};
  }
  return writeRecord(path, list);
}

}  // namespace tessel
