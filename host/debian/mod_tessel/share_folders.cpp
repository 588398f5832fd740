#include "host/debian/mod_tessel/share_folders.h"

#include <chrono>
#include <mutex>

#include "shares/share_point.h"

namespace tessel {

namespace {

std::optional<std::string> readFolder(const std::string& name) {
  const auto node = openLocalNode();
  const auto record = node ? node->sharePoint(name) : node.error();
  const auto details = record && *record ? (*record)->details() : Error{"no such share point"};
  const auto share = details ? sharePointOf(*details) : std::nullopt;
  if (!share || !share->webdav) return std::nullopt;
  // A relative path means nothing to a server, and what follows a NUL byte is lost to the system.
  if (!share->folder.starts_with('/') || share->folder.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  return share->folder;
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
    const std::unique_lock lock(mutex_);
    entries_.erase(name);
    return std::nullopt;
  }
  {
    const std::shared_lock lock(mutex_);
    const auto known = entries_.find(name);
    if (known != entries_.end() && known->second.stamp == *stamp) return known->second.folder;
  }
  // Read after the stamp was taken: a change in between is seen by the next look-up.
  std::optional<std::string> folder = readFolder(name);
  if (isSettled(*stamp)) {
    const std::unique_lock lock(mutex_);
    entries_.insert_or_assign(name, Entry{*stamp, folder});
  }
  return folder;
}

std::vector<std::string> ShareFolders::names() {
  std::vector<std::string> shared;
  const auto node = openLocalNode();
  const auto names = node ? node->sharePointNames() : node.error();
  if (!names) return shared;
  for (const std::string& name : *names) {
    if (folder(name)) shared.push_back(name);
  }
  return shared;
}

}  // namespace tessel
