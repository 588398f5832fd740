#include "shares/share_addition.h"

#include <algorithm>

#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/files/standardized_path.h"
#include "platform/process/console.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

constexpr const char* kReservedName = "webdav";

// False, after a message, for what cannot be shared.
bool isShareable(const std::string& path) {
  const FileManager files;
  const std::string specified = "Specified path '" + path + "' ";
  if (hasPathComponent(path, kReservedName)) {
    reportError("Cannot share: " + specified +
                "contains reserved string \"webdav\" as a path component");
    return false;
  }
  if (!files.fileExistsAtPath(path)) {
    reportError("Cannot share: " + specified + "does not exist");
    return false;
  }
  if (!files.directoryExistsAtPath(path)) {
    reportError("Cannot share: " + specified + "is not a directory");
    return false;
  }
  const auto names = files.contentsOfDirectory(path);
  if (names && std::find(names->begin(), names->end(), kReservedName) != names->end()) {
    printLine("Warning: " + specified +
              "contains a file or folder named with resrved string \"webdav\"");
  }
  return true;
}

// Fails at the first attribute that cannot be set; the earlier ones stay set.
Status updateSharePoint(const DirectoryRecord& record, const RecordAttributes& attributes) {
  for (const char* attribute : {kWebDAVShared, kWebDAVName, kDirectoryPath}) {
    if (Status set = record.setValues(attribute, attributes.at(attribute)); !set) return set;
  }
  return {};
}

}  // namespace

ShareAddition addShare(const std::string& path) {
  if (!isShareable(path)) return ShareAddition::Failed;
  const auto node = openLocalNode();
  if (!node) {
    reportError(node.error().description);
    return ShareAddition::Failed;
  }

  // The name is what the administrator typed, the path what it stands for.
  const std::string name = lastPathComponent(path);
  const RecordAttributes attributes{
      {kWebDAVShared, {"1"}}, {kWebDAVName, {name}}, {kDirectoryPath, {standardizedPath(path)}}};
  const auto existing = node->sharePoint(name);
  if (existing && *existing) {
    if (const Status updated = updateSharePoint(**existing, attributes); !updated) {
      reportError("Cannot set attribute value:" + updated.error().description);
      return ShareAddition::Failed;
    }
    printLine("Updated existing share point");
    return ShareAddition::Updated;
  }

  // What stands there and is no record is no share point either; the creation says what it is.
  printLine("No existing share point named " + name);
  if (const Status created = node->createSharePoint(name, attributes); !created) {
    reportError("Cannot create new record");
    reportError(created.error().description);
    return ShareAddition::Failed;
  }
  printLine("Created share point");
  return ShareAddition::Created;
}

}  // namespace tessel
