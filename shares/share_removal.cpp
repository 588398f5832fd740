#include "control/tessel_ctl.h"
#include "platform/files/path.h"
#include "platform/process/console.h"

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

bool TesselCtl::removeShare(const std::string& path) const {
  const auto node = openLocalNode();
  if (!node) return false;

  const std::string name = lastPathComponent(path);
  const RecordResult found = node->sharePoint(name);
  if (!found.record) {
    reportError("No share point named '" + name + "'");
    return false;
  }
  if (found.error) {
    reportError(found.error->description);
    return false;
  }
  const auto smb = hasFlag(*found.record, kSMBShared, "SMB");
  if (!smb) return false;
  const auto afp = hasFlag(*found.record, kAFPShared, "AFP");
  if (!afp) return false;

  if (*smb || *afp) {
    printLine("Has other shares; updating attributes");
    if (const auto failure = found.record->setValues(kWebDAVShared, {"0"})) {
      reportError("Cannot set attributes: " + failure->description);
      return false;
    }
  } else {
    printLine("No other shares; deleting share point");
    if (const auto failure = found.record->remove()) {
      reportError("Cannot delete record: " + failure->description);
      return false;
    }
    printLine("Deleted share point");
  }
  restartHTTPDGracefully();
  return true;
}

}  // namespace tessel
