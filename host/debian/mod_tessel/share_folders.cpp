#include "host/debian/mod_tessel/share_folders.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <set>
#include <utility>

#include "platform/base/coarse_clock.h"
#include "platform/base/system_error.h"

namespace tessel {

namespace {

// Whether a change that comes from now on is bound to give the file another stamp. File systems
// tell times apart by a few milliseconds, some by two seconds.
bool isSettled(const RecordStamp& stamp) {
  constexpr std::chrono::nanoseconds kCoarsestClock = std::chrono::seconds(2);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::nanoseconds(stamp.changed) < now - kCoarsestClock;
}

// Whether a record is kept from this process, and so is none of its shares.
bool isKept(const Error& error) { return error.code == EACCES; }

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

Result<std::optional<std::string>> ShareFolders::folder(const std::string& name) {
  const auto inPlace = read(DirectoryNode::sharePointInPlaceOf(name));
  if (!inPlace) return inPlace.error();
  return *inPlace && (*inPlace)->name == name ? servedFolder(*inPlace) : misplacedFolder(name);
}

Result<std::vector<SharedFolder>> ShareFolders::all() {
  const auto shares = lookThrough();
  if (!shares) return shares.error();
  std::vector<SharedFolder> shared;
  std::set<std::string> seen;
  for (const SharePoint& share : *shares) {
    auto found = folder(share.name);
    if (!found && isKept(found.error())) continue;
    if (!found) return found.error();
    if (*found && seen.insert(share.name).second)
      shared.push_back({share.name, **std::move(found)});
  }
  return shared;
}

Result<std::optional<SharePoint>> ShareFolders::read(const DirectoryRecord& record) {
  {
    const std::shared_lock lock(mutex_);
    const auto known = records_.find(record.fileName());
    if (known != records_.end() && isRecent(std::atomic_ref(known->second.lookedAt).load())) {
      return known->second.share;
    }
  }
  const std::int64_t now = coarseClock();
  const auto stamp = record.stamp();
  if (!stamp) return stamp.error();
  if (!*stamp) {
    const std::unique_lock lock(mutex_);
    records_.erase(record.fileName());
    return std::optional<SharePoint>();
  }
  {
    const std::shared_lock lock(mutex_);
    const auto known = records_.find(record.fileName());
    if (known != records_.end() && known->second.stamp == **stamp) {
      std::atomic_ref(known->second.lookedAt).store(now);
      return known->second.share;
    }
  }
  // Read after the stamp was taken: a change in between is seen by the next look-up.
  const auto details = record.details();
  if (!details && isAbsence(details.error().code)) return std::optional<SharePoint>();
  if (!details && details.error().code != 0) return details.error();
  auto share = details ? sharePointOf(*details) : std::nullopt;
  if (isSettled(**stamp)) {
    const std::unique_lock lock(mutex_);
    records_.insert_or_assign(record.fileName(), KnownRecord{**stamp, share, now});
  }
  return share;
}

Result<std::optional<std::string>> ShareFolders::misplacedFolder(const std::string& name) {
  constexpr std::chrono::milliseconds kBetweenLooks(1000);
  // Not at once: strangers may ask for any name.
  constexpr std::chrono::milliseconds kAfterFailure(100);
  const auto isRecent = [&] {
    const std::shared_lock lock(mutex_);
    return lookedThrough_ && std::chrono::steady_clock::now() - *lookedThrough_ <
                                 (looked_ ? kBetweenLooks : kAfterFailure);
  };
  if (!isRecent()) (void)lookThrough();
  const std::shared_lock lock(mutex_);
  const auto found = misplaced_.find(name);
  if (found != misplaced_.end()) return servedFolder(found->second);
  if (!looked_) return looked_.error();
  return std::optional<std::string>();
}

Result<std::vector<SharePoint>> ShareFolders::lookThrough() {
  std::vector<SharePoint> shares;
  std::map<std::string, SharePoint> misplaced;
  std::set<std::string> files;
  Status looked;
  const auto node = openLocalNode();
  const auto records = node ? node->sharePoints() : node.error();
  if (!records && !isAbsence(records.error().code)) looked = records.error();
  for (const DirectoryRecord& record : records ? *records : std::vector<DirectoryRecord>()) {
    files.insert(record.fileName());
    const auto share = read(record);
    if (!share && !isKept(share.error())) looked = share.error();
    if (!share || !*share) continue;
    shares.push_back(**share);
    if (DirectoryNode::sharePointInPlaceOf((*share)->name).fileName() != record.fileName()) {
      misplaced.emplace((*share)->name, **share);
    }
  }
  const std::unique_lock lock(mutex_);
  if (records) {
    std::erase_if(records_, [&files](const auto& known) { return !files.contains(known.first); });
  }
  misplaced_ = std::move(misplaced);
  looked_ = looked;
  lookedThrough_ = std::chrono::steady_clock::now();
  if (!looked) return looked.error();
  return shares;
}

}  // namespace tessel
