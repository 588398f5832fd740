#include "shares/share_point.h"

#include "platform/process/console.h"

namespace tessel {

std::optional<DirectoryNode> openLocalNode() {
  const auto session = DirectorySession::open();
  if (!session) {
    reportError("Cannot create Nexa session");
    return std::nullopt;
  }
  auto node = session->localNode();
  if (!node) reportError("Cannot create Nexa node");
  return node;
}

}  // namespace tessel
