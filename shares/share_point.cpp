#include "shares/share_point.h"

#include "platform/base/text.h"

namespace tessel {

namespace {

const std::string* firstValue(const RecordAttributes& attributes, const char* attribute) {
  const auto found = attributes.find(attribute);
  return found == attributes.end() ? nullptr : &found->second.front();
}

}  // namespace

std::optional<SharePoint> sharePointOf(const RecordAttributes& attributes) {
  const std::string* name = firstValue(attributes, kRecordNameAttribute);
  const std::string* folder = firstValue(attributes, kDirectoryPath);
  if (name == nullptr || folder == nullptr) return std::nullopt;
  const std::string* flag = firstValue(attributes, kWebDAVShared);
  return SharePoint{*name, *folder, flag != nullptr && leadingInteger(*flag) == 1};
}

Result<DirectoryNode> openLocalNode() {
  if (const Status found = findDirectoryService(); !found) {
    return Error{"Cannot create Nexa session", found.error().code};
  }
  const auto node = DirectoryNode::open();
  if (!node) return Error{"Cannot create Nexa node", node.error().code};
  return *node;
}

}  // namespace tessel
