#include "shares/share_removal.h"

#include <optional>

#include "platform/files/path.h"
#include "platform/process/console.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

// Tells whether the service shares the record too. A flag of any value counts as the service's, but
// only "1" is called shared. None, after a message, when the flag cannot be read.
std::optional<bool> hasFlag(const DirectoryRecord& record, const char* attribute,
                            const std::string& service) {
  const auto values = record.values(attribute);
  if (!values) {
    reportError("Cannot get attributes: " + values.error().description);
    return std::nullopt;
  }
  if (values->empty()) {
    printLine("Share point is not " + service + " shared");
  } else if (values->front() == "1") {
    printLine("Share point is " + service + " shared");
  }
  return !values->empty();
}

}  // namespace

bool removeShare(const std::string& path) {
  const auto node = openLocalNode();
  if (!node) {
    reportError(node.error().description);
    return false;
  }
  const std::string name = lastPathComponent(path);
  const auto found = node->sharePoint(name);
  if (!found || !*found) {
    reportError("No share point named '" + name + "'");
    return false;
  }
  const DirectoryRecord& record = **found;
  const auto smb = hasFlag(record, kSMBShared, "SMB");
  if (!smb) return false;
  const auto afp = hasFlag(record, kAFPShared, "AFP");
  if (!afp) return false;

  if (*smb || *afp) {
    printLine("Has other shares; updating attributes");
    if (const Status set = record.setValues(kWebDAVShared, {"0"}); !set) {
      reportError("Cannot set attributes: " + set.error().description);
      return false;
    }
    return true;
  }
  printLine("No other shares; deleting share point");
  if (const Status removed = record.remove(); !removed) {
    reportError("Cannot delete record: " + removed.error().description);
    return false;
  }
  printLine("Deleted share point");
  return true;
}

}  // namespace tessel
