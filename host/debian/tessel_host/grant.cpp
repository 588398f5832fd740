#include "host/debian/tessel_host/grant.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "host/debian/tessel_host/access_rules.h"
#include "host/debian/tessel_host/folder_access.h"
#include "host/debian/tessel_host/granted_folders.h"
#include "host/debian/tessel_host/tree_walk.h"
#include "platform/base/system_error.h"
#include "platform/base/text.h"
#include "platform/files/access_list.h"
#include "platform/process/accounts.h"
#include "platform/process/as_user.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
// Only root can see or set attributes of this kind (xattr(7)).
constexpr const char* kRecord = "trusted.tessel.grant";
constexpr std::array kSystemFolders{"/",     "/bin", "/boot", "/dev", "/etc", "/lib", "/lib64",
                                    "/proc", "/run", "/sbin", "/sys", "/usr", "/var"};

int fail(const std::string& message) {
  printErrorLine("tessel-host: " + message);
  return kFailed;
}

std::string counted(size_t number, const char* what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

// What a run did, and what it could not do.
class Progress {
 public:
  void count(const struct stat& status) { ++(S_ISDIR(status.st_mode) ? folders_ : files_); }
  void passOver() { ++passedOver_; }
  void fail(const Error& error) {
    constexpr size_t kMostShown = 10;
    if (++failures_ <= kMostShown) printErrorLine("tessel-host: " + error.description);
  }

  bool isNothing() const { return folders_ + files_ == 0; }
  std::string text() const { return counted(folders_, "folder") + ", " + counted(files_, "file"); }
  int finish() const {
    if (passedOver_ > 0) {
      printErrorLine("tessel-host: left as they are: " + counted(passedOver_, "file") +
                     " with more than one name, which may lie outside the folder as well");
    }
    if (failures_ > 0) {
      printErrorLine("tessel-host: not done: " + counted(failures_, "file or folder"));
    }
    return failures_ > 0 ? kFailed : kDone;
  }

 private:
  size_t folders_ = 0;
  size_t files_ = 0;
  size_t passedOver_ = 0;
  size_t failures_ = 0;
};

Result<uid_t> apacheUser() {
  const auto account = accountOf(kApacheUser);
  if (!account) return account.error();
  if (!*account) return Error{std::string("there is no user ") + kApacheUser};
  return (*account)->user;
}

// The path without links; a folder that is gone keeps the path that was given.
Result<std::string> resolved(const std::string& folder, bool mayBeGone) {
  const std::unique_ptr<char, void (*)(void*)> path(::realpath(folder.c_str(), nullptr), std::free);
  if (path) return std::string(path.get());
  if (mayBeGone && errno == ENOENT && folder.starts_with('/')) return folder;
  return systemError(shown(folder));
}

Result<AccessLists> listsOf(const Visited& item) {
  auto own = accessList(item.descriptor);
  if (!own) return own.error();
  AccessLists lists{*std::move(own), std::nullopt};
  if (!S_ISDIR(item.status.st_mode)) return lists;
  auto forNew = defaultAccessList(item.descriptor);
  if (!forNew) return forNew.error();
  lists.forNew = *std::move(forNew);
  return lists;
}

Status setLists(const Visited& item, const AccessLists& now, const AccessLists& wanted) {
  if (now.own != wanted.own) {
    if (Status set = setAccessList(item.descriptor, wanted.own); !set) return set;
  }
  if (now.forNew == wanted.forNew) return {};
  return setDefaultAccessList(item.descriptor, wanted.forNew);
}

Result<std::optional<GrantRecord>> recordOf(const Visited& item) {
  const auto bytes = extendedAttribute(item.descriptor, kRecord);
  if (!bytes) return bytes.error();
  if (!*bytes) return std::optional<GrantRecord>();
  auto record = GrantRecord::fromBytes(**bytes);
  if (!record) return record.error();
  return std::optional(*std::move(record));
}

Error about(const Visited& item, const Error& error) {
  return Error{shown(item.path) + ": " + error.description, error.code};
}

// Puts new lists in place. What was there is kept on the file first, so that a run that is killed
// can be taken back.
Result<GrantRecord> change(const Visited& item, const AccessLists& now, const AccessLists& wanted,
                           uid_t apache, Progress& progress) {
  const auto recorded = recordOf(item);
  if (!recorded) return recorded.error();
  GrantRecord record{now, wanted};
  if (*recorded) {
    record.before = now == (*recorded)->after ? (*recorded)->before
                                              : withApacheAsIn(now, (*recorded)->before, apache);
  }
  if (now == wanted) return record;
  if (Status kept = setExtendedAttribute(item.descriptor, kRecord, record.bytes()); !kept) {
    return kept.error();
  }
  if (Status set = setLists(item, now, wanted); !set) return set.error();
  progress.count(item.status);
  return record;
}

// Of the folder that a file of Apache's user lies in, or of the folder itself.
std::optional<FromAbove> grantItem(const Visited& item, uid_t apache, Progress& progress) {
  const bool isFolder = S_ISDIR(item.status.st_mode);
  if (!isFolder && item.status.st_nlink > 1) {
    progress.passOver();
    return std::nullopt;
  }
  const auto now = listsOf(item);
  if (!now) {
    progress.fail(about(item, now.error()));
    return std::nullopt;
  }
  const Keepers keepers =
      isFolder ? keepersOf(item.status, now->own, apache, item.above.keepers) : item.above.keepers;
  const AccessLists wanted = withApache(*now, item.status, apache, keepers);
  const auto record = change(item, *now, wanted, apache, progress);
  if (!record) {
    progress.fail(about(item, record.error()));
    return std::nullopt;
  }
  return FromAbove{keepers, std::nullopt, std::nullopt};
}

// Lets Apache's user pass the folders above one, where it cannot. It is asked, since it may get by
// for many reasons.
Status openWay(const std::string& path, uid_t apache) {
  struct Step {
    FileDescriptor folder;
    std::string path;
    struct stat status;
  };
  std::vector<Step> way;
  const auto folder = openFolder(path, [&](const Visited& step) {
    way.push_back(
        {FileDescriptor(::fcntl(step.descriptor, F_DUPFD_CLOEXEC, 0)), step.path, step.status});
  });
  if (!folder) return folder.error();
  const auto passes = runAsUser(kApacheUser, std::nullopt, [&] {
    std::string answers;
    for (const Step& step : way) {
      answers += ::faccessat(step.folder.get(), ".", F_OK, AT_EACCESS) == 0 ? '1' : '0';
    }
    return answers;
  });
  if (!passes) return passes.error();
  const FromAbove nothing;
  for (size_t i = 0; i < way.size(); ++i) {
    if ((*passes)[i] == '1') continue;
    const Visited step{way[i].folder.get(), way[i].path, way[i].status, nothing};
    const auto now = listsOf(step);
    if (!now) return about(step, now.error());
    AccessLists wanted = *now;
    wanted.own.allow(AccessList::Tag::User, apache, AccessList::kExecute);
    Progress ignored;
    const auto changed = change(step, *now, wanted, apache, ignored);
    if (!changed) return about(step, changed.error());
    printLine(shown(way[i].path) + ": " + kApacheUser + " may pass");
  }
  return {};
}

// Gives an item the lists that it had. One that was made since has none to go back to: of what it
// took over from the folder above only the way in of Apache's user goes.
std::optional<FromAbove> undoItem(const Visited& item, uid_t apache, Progress& progress) {
  const bool isFolder = S_ISDIR(item.status.st_mode);
  const auto now = listsOf(item);
  const auto recorded = now ? recordOf(item) : now.error();
  if (!recorded) {
    progress.fail(about(item, recorded.error()));
    return std::nullopt;
  }
  const std::optional<GrantRecord>& record = *recorded;
  if (!record && !isFolder && item.status.st_nlink > 1) return std::nullopt;
  AccessLists wanted;
  if (record) {
    wanted = *now == record->after ? record->before : withApacheAsIn(*now, record->before, apache);
  } else {
    wanted = withApacheAsIn(*now, AccessLists{}, apache);
    if (now->forNew && now->forNew == item.above.forNewAfter) {
      wanted.forNew = item.above.forNewBefore;
    }
  }
  Status undone = setLists(item, *now, wanted);
  if (undone && record) undone = setExtendedAttribute(item.descriptor, kRecord, std::nullopt);
  if (!undone) progress.fail(about(item, undone.error()));
  if (*now != wanted) progress.count(item.status);
  const FromAbove& above = item.above;
  return record ? FromAbove{{}, record->before.forNew, record->after.forNew}
                : FromAbove{{}, above.forNewBefore, above.forNewAfter};
}

// Closes the folders above one again that no other one needs.
void closeWay(const std::string& path, const std::vector<std::string>& others, uid_t apache,
              Progress& progress) {
  const auto close = [&](const Visited& step) {
    const auto needs = [&](const std::string& other) {
      return other == step.path || isBelow(other, step.path);
    };
    if (std::any_of(others.begin(), others.end(), needs)) return;
    const auto record = recordOf(step);
    if (!record || !*record) return;
    (void)undoItem(step, apache, progress);
    printLine(shown(step.path) + ": as it was");
  };
  (void)openFolder(path, close);
}

}  // namespace

int grant(const std::string& folder) {
  const auto apache = apacheUser();
  if (!apache) return fail(apache.error().description);
  const auto path = resolved(folder, false);
  if (!path) return fail(path.error().description);
  if (std::find(kSystemFolders.begin(), kSystemFolders.end(), *path) != kSystemFolders.end()) {
    return fail(*path + " is the system's; grant a folder below it");
  }
  auto top = openFolder(*path, nullptr);
  if (!top) return fail(top.error().description);
  const auto kept = extendedAttribute(top->get(), kRecord);
  if (const auto own = kept ? accessList(top->get()) : kept.error(); !own) {
    return fail(own.error().code == EOPNOTSUPP
                    ? "the file system of " + shown(*path) +
                          " has no access lists; nothing was changed. Give the folder to " +
                          kApacheUser + " when you mount it, as its mount options allow"
                    : shown(*path) + ": " + own.error().description);
  }
  auto granted = GrantedFolders::open();
  if (!granted) return fail(granted.error().description);
  if (const Status added = granted->add(*path); !added) {
    return fail(shown(*path) + ": " + added.error().description);
  }
  if (const Status open = openWay(*path, *apache); !open) return fail(open.error().description);
  Progress progress;
  walkTree(
      *std::move(top), *path,
      [&](const Visited& item) { return grantItem(item, *apache, progress); },
      [&](const Error& error) { progress.fail(error); });
  printLine(shown(*path) + ": " + kApacheUser + " may read and write; changed " + progress.text());
  const auto obstacle =
      runAsUser(kApacheUser, std::nullopt, [&] { return obstacleOnTheWayTo(*path); });
  if (obstacle && !obstacle->empty()) return fail(shown(*path) + ": still closed: " + *obstacle);
  return progress.finish();
}

int undoGrant(const std::string& folder) {
  const auto apache = apacheUser();
  if (!apache) return fail(apache.error().description);
  const auto path = resolved(folder, true);
  if (!path) return fail(path.error().description);
  auto granted = GrantedFolders::open();
  if (!granted) return fail(granted.error().description);
  if (!granted->has(*path)) return fail(shown(*path) + " has not been granted");
  std::vector<std::string> others = granted->paths();
  std::erase(others, *path);

  Progress progress;
  const auto within = std::find_if(others.begin(), others.end(),
                                   [&](const std::string& other) { return isBelow(*path, other); });
  if (within != others.end()) {
    printLine(shown(*path) + ": stays open with " + shown(*within));
  } else {
    const auto visit = [&](const Visited& item) -> std::optional<FromAbove> {
      if (std::find(others.begin(), others.end(), item.path) != others.end()) return std::nullopt;
      return undoItem(item, *apache, progress);
    };
    if (auto top = openFolder(*path, nullptr)) {
      walkTree(*std::move(top), *path, visit, [&](const Error& error) { progress.fail(error); });
    }
    closeWay(*path, others, *apache, progress);
    printLine(shown(*path) + ": taken back from " + progress.text());
    for (const std::string& other : others) {
      if (!isBelow(other, *path)) continue;
      if (const Status open = openWay(other, *apache); !open) progress.fail(open.error());
    }
  }
  if (progress.finish() != kDone) return kFailed;
  const Status removed = granted->remove(*path);
  return removed ? kDone : fail(removed.error().description);
}

}  // namespace tessel
