#include "platform/directory/directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/base/text.h"
#include "platform/directory/record_name.h"
#include "platform/files/file_descriptor.h"
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
MaybeError writeRecord(const std::string& path, const PropertyList& list) {
  const auto xml = list.xml();
  if (!xml) return Error{"cannot write " + path + ": " + xml.error().description};
  if (!isXMLText(*xml)) return Error{"cannot write " + path + ": XML cannot hold its characters"};
  return FileManager().writeAtomically(path, *xml, FileManager::Attributes::KeepExisting);
}

MaybeError checkValues(const std::string& attribute, const AttributeValues& values) {
  if (std::all_of(values.begin(), values.end(), isXMLText)) return std::nullopt;
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

}  // namespace

std::optional<RecordAttributes> DirectoryRecord::details() const {
  const auto file = readRecord(path);
  if (!file) return std::nullopt;
  const auto entries = file->list.root().entries();
  RecordAttributes attributes;
  for (const auto& [name, value] : *entries) {
    AttributeValues values = valuesOf(value);
    if (!values.empty()) attributes.emplace(name, std::move(values));
  }
  return attributes;
}

Result<AttributeValues> DirectoryRecord::values(const std::string& attribute) const {
  const auto file = readRecord(path);
  if (!file) return file.error();
  const auto value = file->list.value(attribute);
  return value ? valuesOf(*value) : AttributeValues{};
}

MaybeError DirectoryRecord::setValues(const std::string& attribute,
                                      const AttributeValues& values) const {
  if (auto failure = checkValues(attribute, values)) return failure;
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return lock.error();
  auto file = readRecord(path);
  if (!file) return file.error();
  file->list.setStrings(attribute, values);
  return writeRecord(path, file->list);
}

MaybeError DirectoryRecord::remove() const {
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return lock.error();
  const FileManager fileManager;
  if (seen) {
    const auto bytes = fileManager.readFile(path, kLargestPropertyList);
    if (!bytes) return bytes.error();
    if (*bytes != *seen) {
      return Error{path + " was changed by another program at the same time; try again"};
    }
  }
  return fileManager.removeItem(path);
}

Result<std::vector<DirectoryRecord>> RecordQuery::results() const {
  std::vector<DirectoryRecord> records;
  if (empty) return records;
  auto names = FileManager().contentsOfDirectory(kSharePoints);
  if (!names) return names.error();
  std::sort(names->begin(), names->end());
  for (const std::string& name : *names) {
    if (!isRecordFileName(name)) continue;
    records.push_back(DirectoryRecord(appendPathComponent(kSharePoints, name)));
  }
  return records;
}

Result<std::vector<std::string>> RecordQuery::names() const {
  std::vector<std::string> names;
  if (empty) return names;
  auto fileNames = FileManager().contentsOfDirectory(kSharePoints);
  if (!fileNames) return fileNames.error();
  std::sort(fileNames->begin(), fileNames->end());
  for (const std::string& fileName : *fileNames) {
    if (auto name = recordName(fileName)) names.push_back(std::move(*name));
  }
  return names;
}

std::optional<RecordStamp> sharePointStamp(std::string_view name) {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  const auto nanoseconds = [](const timespec& time) {
    return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
  };
  const std::string path = appendPathComponent(kSharePoints, recordFileName(name));
  struct stat status {};
  if (name.empty() || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return RecordStamp{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                     nanoseconds(status.st_ctim)};
}

std::optional<RecordQuery> DirectoryNode::querySharePoints() const {
  const FileDescriptor folder(::open(kSharePoints, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder && errno != ENOENT) return std::nullopt;
  return RecordQuery(!folder);
}

RecordResult DirectoryNode::sharePoint(std::string_view name) const {
  if (name.empty()) return {};
  DirectoryRecord record(appendPathComponent(kSharePoints, recordFileName(name)));
  struct stat status {};
  if (::lstat(record.path.c_str(), &status) != 0 && errno == ENOENT) return {};
  auto file = readRecord(record.path);
  if (!file) return {std::nullopt, file.error()};
  record.seen = std::move(file->bytes);
  return {std::move(record), std::nullopt};
}

RecordResult DirectoryNode::createSharePoint(const std::string& name,
                                             const RecordAttributes& attributes) const {
  const auto failed = [](Error reason) { return RecordResult{std::nullopt, std::move(reason)}; };
  if (name.empty()) return failed(Error{"a record needs a name"});
  PropertyList list;
  if (auto failure = checkValues(kRecordNameAttribute, {name})) return failed(*failure);
  list.setStrings(kRecordNameAttribute, {name});
  for (const auto& [attribute, values] : attributes) {
    if (auto failure = checkValues(attribute, values)) return failed(*failure);
    list.setStrings(attribute, values);
  }

  if (auto failure = FileManager().createDirectory(kSharePoints, kRecordFolderMode)) {
    return failed(*failure);
  }
  const auto lock = lockFolder(kSharePoints);
  if (!lock) return failed(lock.error());
  DirectoryRecord record(appendPathComponent(kSharePoints, recordFileName(name)));
  struct stat status {};
  if (::lstat(record.path.c_str(), &status) == 0) {
    const auto file = readRecord(record.path);
    return failed(Error{"nothing is overwritten at " + record.path + ": " +
                        (file ? "another program has made the record" : file.error().description)});
  }
  if (auto failure = writeRecord(record.path, list)) return failed(*failure);
  return {std::move(record), std::nullopt};
}

std::optional<DirectorySession> DirectorySession::open() {
  if (!FileManager().directoryExistsAtPath(kDirectoryService)) return std::nullopt;
  return DirectorySession();
}

std::optional<DirectoryNode> DirectorySession::localNode() const {
  if (!FileManager().directoryExistsAtPath(kLocalNode)) return std::nullopt;
  return DirectoryNode();
}

}  // namespace tessel
