#include "platform/directory/directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/base/text.h"
#include "platform/directory/record_name.h"
#include "platform/files/file_manager.h"
#include "platform/files/folder_lock.h"
#include "platform/files/path.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/description.h"
#include "platform/property_list/property_list.h"

namespace tessel {

namespace {

constexpr const char* kDirectoryService = "/var/lib/directory";
constexpr const char* kLocalNode = "/var/lib/directory/local";
constexpr const char* kSharePoints = "/var/lib/directory/local/sharepoints";
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

// Puts the list in the record's place, unless it would be a record that not everybody can read
// again: a binary list may hold control characters, for which XML has no form.
Status writeRecord(const std::string& path, const PropertyList& list) {
  const auto xml = list.xml();
  if (!xml) return Error{"cannot write " + path + ": " + xml.error().description};
  if (!isXMLText(*xml)) return Error{"cannot write " + path + ": XML cannot hold its characters"};
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

// The names of the record files in byte order.
Result<std::vector<std::string>> recordFiles() {
  if (!FileManager().fileExistsAtPath(kSharePoints)) return std::vector<std::string>();
  auto names = FileManager().contentsOfDirectory(kSharePoints);
  if (!names) return names.error();
  std::erase_if(*names, [](const std::string& name) { return !isRecordFileName(name); });
  std::sort(names->begin(), names->end());
  return names;
}

std::string recordPath(std::string_view name) {
  return appendPathComponent(kSharePoints, recordFileName(name));
}

}  // namespace

Result<RecordAttributes> DirectoryRecord::details() const {
  const auto file = readRecord(path_);
  if (!file) return file.error();
  const auto entries = file->list.root().entries();
  RecordAttributes attributes;
  for (const auto& [name, value] : *entries) {
    AttributeValues values = valuesOf(value);
    if (!values.empty()) attributes.emplace(name, std::move(values));
  }
  return attributes;
}

Result<AttributeValues> DirectoryRecord::values(const std::string& attribute) const {
  const auto file = readRecord(path_);
  if (!file) return file.error();
  const auto value = file->list.value(attribute);
  return value ? valuesOf(*value) : AttributeValues{};
}

Status DirectoryRecord::setValues(const std::string& attribute,
                                  const AttributeValues& values) const {
  if (Status valid = checkValues(attribute, values); !valid) return valid;
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return lock.error();
  auto file = readRecord(path_);
  if (!file) return file.error();
  file->list.setStrings(attribute, values);
  return writeRecord(path_, file->list);
}

Status DirectoryRecord::remove() const {
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return lock.error();
  if (seen_) {
    const auto bytes = FileManager().readFile(path_, kLargestPropertyList);
    if (!bytes) return bytes.error();
    if (*bytes != *seen_) {
      return Error{path_ + " was changed by another program at the same time; try again"};
    }
  }
  return FileManager().removeItem(path_);
}

bool directoryServiceExists() { return FileManager().directoryExistsAtPath(kDirectoryService); }

std::optional<DirectoryNode> DirectoryNode::open() {
  if (!FileManager().directoryExistsAtPath(kLocalNode)) return std::nullopt;
  return DirectoryNode();
}

Result<std::vector<DirectoryRecord>> DirectoryNode::sharePoints() const {
  const auto files = recordFiles();
  if (!files) return files.error();
  std::vector<DirectoryRecord> records;
  records.reserve(files->size());
  for (const std::string& file : *files) {
    records.push_back(DirectoryRecord(appendPathComponent(kSharePoints, file)));
  }
  return records;
}

Result<std::vector<std::string>> DirectoryNode::sharePointNames() const {
  const auto files = recordFiles();
  if (!files) return files.error();
  std::vector<std::string> names;
  for (const std::string& file : *files) {
    if (auto name = recordName(file)) names.push_back(std::move(*name));
  }
  return names;
}

Result<std::optional<DirectoryRecord>> DirectoryNode::sharePoint(std::string_view name) const {
  const std::optional<DirectoryRecord> none;
  if (name.empty()) return none;
  DirectoryRecord record(recordPath(name));
  struct stat status {};
  if (::lstat(record.path_.c_str(), &status) != 0 && errno == ENOENT) return none;
  auto file = readRecord(record.path_);
  if (!file) return file.error();
  record.seen_ = std::move(file->bytes);
  return std::optional(std::move(record));
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
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return lock.error();
  const std::string path = recordPath(name);
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) {
    const auto file = readRecord(path);
    return Error{"nothing is overwritten at " + path + ": " +
                 (file ? "another program has made the record" : file.error().description)};
  }
  return writeRecord(path, list);
}

std::optional<RecordStamp> sharePointStamp(std::string_view name) {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  const auto nanoseconds = [](const timespec& time) {
    return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
  };
  struct stat status {};
  if (name.empty() || ::stat(recordPath(name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return RecordStamp{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                     nanoseconds(status.st_ctim)};
}

}  // namespace tessel
