#include "host/debian/mod_tessel/share_folders.h"

#include <chrono>
#include <mutex>

#include "platform/base/text.h"
#include "shares/share_point.h"

namespace tessel {

namespace {

std::optional<DirectoryNode> localNode() {
  const auto session = DirectorySession::open();
  return session ? session->localNode() : std::nullopt;
}

std::optional<std::string> readFolder(const std::string& name) {
  const auto node = localNode();
  if (!node) return std::nullopt;
  const RecordResult found = node->sharePoint(name);
  if (!found.record) return std::nullopt;
  const auto attributes = found.record->details();
  if (!attributes) return std::nullopt;
  const auto flag = attributes->find(kWebDAVShared);
  const auto path = attributes->find(kDirectoryPath);
  if (flag == attributes->end() || leadingInteger(flag->second.front()) != 1) return std::nullopt;
  if (path == attributes->end()) return std::nullopt;
  const std::string& folder = path->second.front();
  // A relative path means nothing to a server, and what follows a NUL byte is lost to the system.
  if (!folder.starts_with('/') || folder.find('\0') != std::string::npos) return std::nullopt;
  return folder;
}

// Whether a change that comes from now on is bound to give the file another stamp. File systems
// tell times apart by a few milliseconds, some by two seconds.
bool isSettled(const RecordStamp& stamp) {
  constexpr std::chrono::nanoseconds kCoarsestClock = std::chrono::seconds(2);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::nanoseconds(stamp.changed) + kCoarsestClock < now;
}

}  // namespace

std::optional<std::string> ShareFolders::folder(const std::string& name) {
  const auto stamp = sharePointStamp(name);
  if (!stamp) {
    const std::unique_lock lock(mutex);
    entries.erase(name);
    return std::nullopt;
  }
  {
    const std::shared_lock lock(mutex);
    const auto known = entries.find(name);
    if (known != entries.end() && known->second.stamp == *stamp) return known->second.folder;
  }
  // Read after the stamp was taken: a change in between is seen by the next look-up.
  std::optional<std::string> folder = readFolder(name);
  if (isSettled(*stamp)) {
    const std::unique_lock lock(mutex);
    entries.insert_or_assign(name, Entry{*stamp, folder});
  }
  return folder;
}

std::vector<std::string> ShareFolders::names() {
  std::vector<std::string> shared;
  const auto node = localNode();
  const auto query = node ? node->querySharePoints() : std::nullopt;
  if (!query) return shared;
  const auto names = query->names();
  if (!names) return shared;
  for (const std::string& name : *names) {
    if (folder(name)) shared.push_back(name);
  }
  return shared;
}

}  // namespace tessel
