#include "host/debian/mod_tessel/share_folders.h"

#include <atomic>
#include <mutex>
#include <set>
#include <utility>

#include "platform/base/coarse_clock.h"

namespace tessel {

namespace {

// Whether a change that comes from now on is bound to give the file another stamp. File systems
// tell times apart by a few milliseconds, some by two seconds.
bool isSettled(const RecordStamp& stamp) {
  constexpr std::chrono::nanoseconds kCoarsestClock = std::chrono::seconds(2);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::nanoseconds(stamp.changed) + kCoarsestClock < now;
}

// The folder that is served, if any. A relative path means nothing to a server, and what follows a
// NUL byte is lost to the system.
std::optional<std::string> servedFolder(const std::optional<SharePoint>& share) {
  if (!share || !share->webdav || !share->folder.starts_with('/') ||
      share->folder.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  return share->folder;
}

}  // namespace

std::optional<std::string> ShareFolders::folder(const std::string& name) {
  const auto inPlace = read(DirectoryNode::sharePointInPlaceOf(name));
  return inPlace && inPlace->name == name ? servedFolder(inPlace) : misplacedFolder(name);
}

std::vector<std::string> ShareFolders::names() {
  std::vector<std::string> shared;
  std::set<std::string> seen;
  for (const SharePoint& share : lookThrough()) {
    if (folder(share.name) && seen.insert(share.name).second) shared.push_back(share.name);
  }
  return shared;
}

std::optional<SharePoint> ShareFolders::read(const DirectoryRecord& record) {
  {
    const std::shared_lock lock(mutex_);
    const auto known = records_.find(record.fileName());
    if (known != records_.end() && isRecent(std::atomic_ref(known->second.lookedAt).load())) {
      return known->second.share;
    }
  }
  const std::int64_t now = coarseClock();
  const auto stamp = record.stamp();
  if (!stamp) {
    const std::unique_lock lock(mutex_);
    records_.erase(record.fileName());
    return std::nullopt;
  }
  {
    const std::shared_lock lock(mutex_);
    const auto known = records_.find(record.fileName());
    if (known != records_.end() && known->second.stamp == *stamp) {
      std::atomic_ref(known->second.lookedAt).store(now);
      return known->second.share;
    }
  }
  // Read after the stamp was taken: a change in between is seen by the next look-up.
  const auto details = record.details();
  auto share = details ? sharePointOf(*details) : std::nullopt;
  if (isSettled(*stamp)) {
    const std::unique_lock lock(mutex_);
    records_.insert_or_assign(record.fileName(), KnownRecord{*stamp, share, now});
  }
  return share;
}

std::optional<std::string> ShareFolders::misplacedFolder(const std::string& name) {
  constexpr std::chrono::seconds kBetweenLooks(1);
  const auto isRecent = [this, kBetweenLooks] {
    const std::shared_lock lock(mutex_);
    return lookedThrough_ && std::chrono::steady_clock::now() - *lookedThrough_ < kBetweenLooks;
  };
  if (!isRecent()) (void)lookThrough();
  const std::shared_lock lock(mutex_);
  const auto found = misplaced_.find(name);
  return found == misplaced_.end() ? std::nullopt : servedFolder(found->second);
}

std::vector<SharePoint> ShareFolders::lookThrough() {
  std::vector<SharePoint> shares;
  const auto node = openLocalNode();
  const auto records = node ? node->sharePoints() : node.error();
  if (!records) {
    const std::unique_lock lock(mutex_);
    misplaced_.clear();
    return shares;
  }
  std::map<std::string, SharePoint> misplaced;
  std::set<std::string> files;
  for (const DirectoryRecord& record : *records) {
    files.insert(record.fileName());
    const auto share = read(record);
    if (!share) continue;
    shares.push_back(*share);
    if (DirectoryNode::sharePointInPlaceOf(share->name).fileName() != record.fileName()) {
      misplaced.emplace(share->name, *share);
    }
  }
  const std::unique_lock lock(mutex_);
  std::erase_if(records_, [&files](const auto& known) { return !files.contains(known.first); });
  misplaced_ = std::move(misplaced);
  lookedThrough_ = std::chrono::steady_clock::now();
  return shares;
}

}  // namespace tessel
