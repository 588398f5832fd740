#include <algorithm>

#include "control/tessel_ctl.h"
#include "platform/files/path.h"
#include "platform/files/standardized_path.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr const char* kReservedName = "webdav";

// False, after a message, at the first attribute that cannot be set; the earlier ones stay set.
// `failure` comes in as what the lookup reported, and fails the first attribute.
bool updateSharePoint(const DirectoryRecord& record, const RecordAttributes& attributes,
                      MaybeError failure) {
  for (const char* attribute : {kWebDAVShared, kWebDAVName, kDirectoryPath}) {
    if (auto reason = record.setValues(attribute, attributes.at(attribute))) failure = reason;
    if (failure) {
      reportError("Cannot set attribute value:" + failure->description);
      return false;
    }
  }
  printLine("Updated existing share point");
  return true;
}

}  // namespace

bool TesselCtl::isShareable(const std::string& path) const {
  const std::string specified = "Specified path '" + path + "' ";
  if (hasPathComponent(path, kReservedName)) {
    reportError("Cannot share: " + specified +
                "contains reserved string \"webdav\" as a path component");
    return false;
  }
  if (!fileManager.fileExistsAtPath(path)) {
    reportError("Cannot share: " + specified + "does not exist");
    return false;
  }
  if (!fileManager.directoryExistsAtPath(path)) {
    reportError("Cannot share: " + specified + "is not a directory");
    return false;
  }
  const auto names = fileManager.contentsOfDirectory(path);
  if (names && std::find(names->begin(), names->end(), kReservedName) != names->end()) {
    printLine("Warning: " + specified +
              "contains a file or folder named with resrved string \"webdav\"");
  }
  return true;
}

bool TesselCtl::addShare(const std::string& path) const {
  if (!isShareable(path)) return false;
  const auto node = openLocalNode();
  if (!node) return false;

  // The name is what the administrator typed, the path what it stands for.
  const std::string name = lastPathComponent(path);
  const RecordAttributes attributes{
      {kWebDAVShared, {"1"}}, {kWebDAVName, {name}}, {kDirectoryPath, {standardizedPath(path)}}};
  const RecordResult existing = node->sharePoint(name);
  if (existing.record) return updateSharePoint(*existing.record, attributes, existing.error);

  printLine("No existing share point named " + name);
  const RecordResult created = node->createSharePoint(name, attributes);
  if (!created.record) {
    const MaybeError& failure = created.error ? created.error : existing.error;
    reportError("Cannot create new record");
    reportError(failure ? failure->description : "unknown");
    return false;
  }
  printLine("Created share point");
  restartHTTPDGracefully();
  return true;
}

}  // namespace tessel
