#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>

#include "host/debian/mod_tessel/state/places.h"
#include "host/debian/mod_tessel/state/state.h"
#include "host/debian/mod_tessel/state/store.h"
#include "platform/base/hexadecimal.h"

namespace tessel {

namespace {

using sql::Blob;

// Where the clock was set back, a lock seems to be made for longer than it may be.
constexpr std::time_t kClockStep = 3600;
// No host has as many locks in one place; a damaged database may.
constexpr std::size_t kMostRows = 100'000;
constexpr std::size_t kTokenSize = 36;
// Longer than any path that the kernel tells, with a name in it.
constexpr std::size_t kMostPathBytes = 8UL * 1024;

#define LOCKS_WHERE(condition)                                                      \
  "SELECT l.token, l.exclusive, l.infinite, l.owner, l.user, l.created, l.expires," \
  " p.folder, p.name, p.inode, p.birth, p.device FROM place p CROSS JOIN lock l"    \
  " ON l.file = p.file WHERE l.expires > ?1 AND l.expires <= ?2 AND " condition

constexpr const char* kAnyLock = "SELECT EXISTS (SELECT 1 FROM lock)";
constexpr const char* kLocksAt = LOCKS_WHERE("p.folder = ?3 AND p.name = ?4");
constexpr const char* kLocksIn = LOCKS_WHERE("p.folder = ?3 ORDER BY p.name");
constexpr const char* kLocksBelow =
    LOCKS_WHERE("(p.folder = ?3 OR (p.folder >= ?4 AND p.folder < ?5))");
constexpr const char* kAllLocks =
    "SELECT l.token, l.exclusive, l.infinite, l.owner, l.user, l.created, l.expires,"
    " p.folder, p.name, p.inode, p.birth, p.device FROM lock l CROSS JOIN place p"
    " ON p.file = l.file WHERE l.expires > ?1 AND l.expires <= ?2 ORDER BY p.folder, p.name";
constexpr const char* kOver = "SELECT DISTINCT file FROM lock WHERE expires <= ?1 OR expires > ?2";
constexpr const char* kRemoveOver = "DELETE FROM lock WHERE expires <= ?1 OR expires > ?2";
constexpr const char* kOfUser = "SELECT count(*), total(length(owner)) FROM lock WHERE user = ?";
constexpr const char* kAddLock = "INSERT INTO lock VALUES (?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* kRefresh = "UPDATE lock SET expires = ?2 WHERE token = ?1";
constexpr const char* kFileOfToken = "SELECT file FROM lock WHERE token = ?";
constexpr const char* kRemoveToken = "DELETE FROM lock WHERE token = ?";
constexpr const char* kRemoveOfFile = "DELETE FROM lock WHERE file = ?";
constexpr const char* kMoveLocks = "UPDATE lock SET file = ?2 WHERE file = ?1";
constexpr const char* kFilesOfTree =
    "SELECT DISTINCT l.file FROM place p CROSS JOIN lock l ON l.file = p.file"
    " WHERE (p.folder = ?1 AND p.name = ?2) OR p.folder = ?3 OR (p.folder >= ?4 AND p.folder < ?5)";

#undef LOCKS_WHERE

struct FoundLock {
  Lock lock;
  FileIdentity identity;  // of the file that it is on
};

bool isLockToken(std::string_view token) {
  if (token.size() != kTokenSize) return false;
  for (std::size_t i = 0; i < token.size(); ++i) {
    const bool isDash = i == 8 || i == 13 || i == 18 || i == 23;
    const char c = token[i];
    const bool isDigit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
    if (isDash ? c != '-' : !isDigit) return false;
  }
  return true;
}

std::time_t cut(std::time_t seconds) {
  return seconds <= 0 || seconds > kLongestLock ? kLongestLock : seconds;
}

// The locks of a statement whose first two values are the times between which they end.
template <typename... Values>
Result<std::vector<FoundLock>> found(StateConnection& connection, const char* sql, std::time_t now,
                                     const Values&... values) {
  std::vector<FoundLock> locks;
  const Status status = connection.rows(
      sql,
      [&](const sql::Statement& row) {
        FoundLock one;
        Lock& lock = one.lock;
        lock.token = row.bytes(0);
        lock.isExclusive = row.number(1) != 0;
        lock.isInfinite = row.number(2) != 0;
        lock.owner = row.bytes(3);
        lock.user = row.bytes(4);
        lock.created = row.number(5);
        lock.expires = row.number(6);
        lock.path = pathInside(row.bytes(7), row.bytes(8));
        one.identity = {static_cast<std::uint64_t>(row.number(11)),
                        static_cast<std::uint64_t>(row.number(9)), row.number(10)};
        lock.isOnName = !one.identity.exists();
        // A damaged database may hold what nobody could have set.
        if (isLockToken(lock.token) && lock.owner.size() <= kMostOwnerBytes &&
            lock.user.size() <= kMostNameBytes && lock.path.size() <= kMostPathBytes) {
          locks.push_back(std::move(one));
        }
        return locks.size() < kMostRows;
      },
      static_cast<std::int64_t>(now), static_cast<std::int64_t>(now + kLongestLock + kClockStep),
      values...);
  if (!status) return status.error();
  return locks;
}

bool isOn(const FoundLock& found, const FileIdentity& identity) {
  return found.lock.isOnName || found.identity.isSameFile(identity);
}

// Whether the file that the lock is on still stands at its path. What cannot be examined is taken
// to be there, so that no lock opens by that.
bool stands(const FoundLock& found) {
  if (found.lock.isOnName) return true;
  const auto standing = identityAt(found.lock.path);
  return !standing || found.identity.isSameFile(*standing);
}

// One known under two places, or reached on two ways, counts once.
void add(std::vector<Lock>& locks, FoundLock&& one) {
  const bool isKnown = std::any_of(locks.begin(), locks.end(),
                                   [&](const Lock& lock) { return lock.token == one.lock.token; });
  if (!isKnown) locks.push_back(std::move(one.lock));
}

// Each lock once, and where its file stands if it does. For a long list.
std::vector<Lock> withoutDoubles(std::vector<FoundLock>&& found) {
  std::vector<Lock> locks;
  for (FoundLock& one : found) {
    one.lock.isGone = !stands(one);
    locks.push_back(std::move(one.lock));
  }
  const auto byToken = [](const Lock& a, const Lock& b) {
    return std::tie(a.token, a.isGone, a.path) < std::tie(b.token, b.isGone, b.path);
  };
  std::sort(locks.begin(), locks.end(), byToken);
  const auto isSameToken = [](const Lock& a, const Lock& b) { return a.token == b.token; };
  locks.erase(std::unique(locks.begin(), locks.end(), isSameToken), locks.end());
  std::sort(locks.begin(), locks.end(), [](const Lock& a, const Lock& b) {
    return std::tie(a.path, a.created, a.user, a.token) <
           std::tie(b.path, b.created, b.user, b.token);
  });
  return locks;
}

std::vector<Lock> standing(std::vector<FoundLock>&& found) {
  std::vector<Lock> locks = withoutDoubles(std::move(found));
  std::erase_if(locks, [](const Lock& lock) { return lock.isGone; });
  return locks;
}

Result<std::vector<FoundLock>> locksAt(StateConnection& connection, std::string_view path,
                                       std::time_t now) {
  const PathParts parts = partsOf(path);
  return found(connection, kLocksAt, now, Blob{parts.folder}, Blob{parts.name});
}

// Adds those that cover everything below the folders above the path.
Status addCovering(StateConnection& connection, std::string_view path, std::time_t now,
                   std::vector<Lock>& locks) {
  while (path.size() > 1) {
    path = partsOf(path).folder;
    auto above = locksAt(connection, path, now);
    if (!above) return above.error();
    for (FoundLock& one : *above) {
      if (one.lock.isInfinite && stands(one)) add(locks, std::move(one));
    }
  }
  return {};
}

Result<std::vector<Lock>> locksOf(StateConnection& connection, const File& file, std::time_t now) {
  std::vector<Lock> locks;
  auto direct = locksAt(connection, file.path, now);
  if (!direct) return direct.error();
  for (FoundLock& one : *direct) {
    if (isOn(one, file.identity)) add(locks, std::move(one));
  }
  Status status = addCovering(connection, file.path, now, locks);
  if (status && !file.linkedPath.empty()) {
    status = addCovering(connection, file.linkedPath, now, locks);
  }
  if (!status) return status.error();
  return locks;
}

Result<std::vector<Lock>> locksBelow(StateConnection& connection, const std::string& path,
                                     std::time_t now) {
  const Tree tree(path);
  auto below = found(connection, kLocksBelow, now, Blob{tree.inside}, Blob{tree.first},
                     Blob{tree.afterLast});
  if (!below) return below.error();
  return standing(std::move(*below));
}

bool agrees(const Lock& lock, const std::vector<Lock>& others) {
  if (lock.isExclusive) return others.empty();
  return std::none_of(others.begin(), others.end(),
                      [](const Lock& other) { return other.isExclusive; });
}

Result<std::vector<std::int64_t>> filesFrom(StateConnection& connection, const char* sql,
                                            const auto&... values) {
  std::vector<std::int64_t> files;
  const Status status = connection.rows(
      sql,
      [&](const sql::Statement& row) {
        files.push_back(row.number(0));
        return files.size() < kMostRows;
      },
      values...);
  if (!status) return status.error();
  return files;
}

Status dropBare(StateConnection& connection, const std::vector<std::int64_t>& files) {
  for (const std::int64_t file : files) {
    if (Status dropped = dropIfBare(connection, file); !dropped) return dropped;
  }
  return {};
}

Status removeOver(StateConnection& connection, std::time_t now) {
  const auto first = static_cast<std::int64_t>(now);
  const auto last = static_cast<std::int64_t>(now + kLongestLock + kClockStep);
  const auto files = filesFrom(connection, kOver, first, last);
  if (!files) return files.error();
  if (files->empty()) return {};
  Status removed = connection.change(kRemoveOver, first, last);
  if (!removed) return removed;
  return dropBare(connection, *files);
}

// Ends the locks of these files; how many there were.
Result<int> removeOfFiles(StateConnection& connection, const std::vector<std::int64_t>& files) {
  int count = 0;
  for (const std::int64_t file : files) {
    const Status removed = connection.change(kRemoveOfFile, file);
    if (!removed) return removed.error();
    count += static_cast<int>(connection.database().changedRows());
  }
  const Status dropped = dropBare(connection, files);
  if (!dropped) return dropped.error();
  return count;
}

// Whether a user may have one more, with an owner of this size.
Result<bool> isWithinBounds(StateConnection& connection, const Lock& lock) {
  bool fits = false;
  const Status counted = connection.rows(
      kOfUser,
      [&](const sql::Statement& row) {
        fits = static_cast<std::size_t>(row.number(0)) < kMostUserLocks &&
               static_cast<std::size_t>(row.number(1)) + lock.owner.size() <= kMostUserOwnerBytes;
        return false;
      },
      Blob{lock.user});
  if (!counted) return counted.error();
  return fits;
}

}  // namespace

Result<std::string> newLockToken() {
  constexpr std::size_t kBytes = 16;
  std::array<char, kBytes> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    return stateError(StateError::Failed,
                      std::string("the system has no random numbers: ") + std::strerror(errno));
  }
  // Version 4 and variant 1 of RFC 9562.
  bytes[6] = static_cast<char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<char>((bytes[8] & 0x3F) | 0x80);
  std::string token = hexadecimal({bytes.data(), bytes.size()});
  for (const std::size_t dash : {8U, 13U, 18U, 23U}) token.insert(dash, 1, '-');
  return token;
}

bool covers(const Lock& lock, std::string_view path) {
  if (path == lock.path) return true;
  if (!lock.isInfinite || !path.starts_with(lock.path)) return false;
  return lock.path == "/" || path[lock.path.size()] == '/';
}

bool covers(const Lock& lock, const File& file) {
  if (covers(lock, file.path)) return true;
  return file.linkedPath != lock.path && covers(lock, file.linkedPath);
}

namespace {

// Locks that `function` looks up: none, and quickly, where there are none at all, which is usual.
template <typename Function>
Result<std::vector<Lock>> readLocks(StateStore& store, Function&& function) {
  const auto any =
      store.read([](StateConnection& connection) { return connection.rememberedNumber(kAnyLock); });
  if (!any) return any.error();
  if (*any == 0) return std::vector<Lock>();
  return store.readAtOnce(std::forward<Function>(function));
}

}  // namespace

Result<std::vector<Lock>> State::locks(const File& file) {
  return readLocks(*store_, [&](StateConnection& connection) {
    return locksOf(connection, file, store_->now());
  });
}

Result<std::vector<Lock>> State::locksOfTree(const File& file) {
  return readLocks(*store_, [&](StateConnection& connection) -> Result<std::vector<Lock>> {
    const std::time_t now = store_->now();
    auto locks = locksOf(connection, file, now);
    if (!locks) return locks;
    auto below = locksBelow(connection, file.path, now);
    if (!below) return below;
    locks->insert(locks->end(), std::make_move_iterator(below->begin()),
                  std::make_move_iterator(below->end()));
    return locks;
  });
}

Result<std::vector<Lock>> State::locksIn(const std::string& folder) {
  return readLocks(*store_, [&](StateConnection& connection) -> Result<std::vector<Lock>> {
    auto locks = found(connection, kLocksIn, store_->now(), Blob{folder});
    if (!locks) return locks.error();
    return standing(std::move(*locks));
  });
}

Result<std::vector<Lock>> State::allLocks() {
  return readLocks(*store_, [&](StateConnection& connection) -> Result<std::vector<Lock>> {
    auto locks = found(connection, kAllLocks, store_->now());
    if (!locks) return locks.error();
    return withoutDoubles(std::move(*locks));
  });
}

Result<Lock> State::addLock(const File& file, const Lock& lock, std::time_t seconds) {
  if (!isLockToken(lock.token)) return stateError(StateError::Failed, "this is no lock token");
  if (Status valid = checkPath(file.path); !valid) return valid.error();
  if (lock.owner.size() > kMostOwnerBytes || lock.user.size() > kMostNameBytes) {
    return stateError(StateError::TooMuch, "the owner of the lock is too long");
  }
  return store_->write([&](StateConnection& connection) -> Result<Lock> {
    const std::time_t now = store_->now();
    if (const Status removed = removeOver(connection, now); !removed) return removed.error();
    const auto others = locksOf(connection, file, now);
    if (!others) return others.error();
    const auto below = lock.isInfinite ? locksBelow(connection, file.path, now)
                                       : Result<std::vector<Lock>>(std::vector<Lock>());
    if (!below) return below.error();
    if (!agrees(lock, *others) || !agrees(lock, *below)) {
      return stateError(StateError::Locked, "another lock is in the way");
    }
    const auto onFile = std::count_if(others->begin(), others->end(),
                                      [&](const Lock& one) { return one.path == file.path; });
    if (static_cast<std::size_t>(onFile) >= kMostFileLocks) {
      return stateError(StateError::TooMuch, "the file has too many locks");
    }
    const auto fits = isWithinBounds(connection, lock);
    if (!fits) return fits.error();
    if (!*fits) return stateError(StateError::TooMuch, "the user has too many locks");

    const auto id = madeFileOf(connection, file);
    if (!id) return id.error();
    Lock made = lock;
    made.path = file.path;
    made.isOnName = !file.identity.exists();
    made.created = now;
    made.expires = now + cut(seconds);
    const Status added = connection.change(
        kAddLock, std::string_view(made.token), *id, std::int64_t{made.isExclusive},
        std::int64_t{made.isInfinite}, Blob{made.owner}, Blob{made.user},
        static_cast<std::int64_t>(made.created), static_cast<std::int64_t>(made.expires));
    if (!added) return added.error();
    if (const Status settled = settlePlaces(connection, file, now); !settled) {
      return settled.error();
    }
    return made;
  });
}

Result<Lock> State::refreshLock(const File& file, const std::string& token, std::time_t seconds) {
  return store_->write([&](StateConnection& connection) -> Result<Lock> {
    const std::time_t now = store_->now();
    const auto locks = locksOf(connection, file, now);
    if (!locks) return locks.error();
    const auto known = std::find_if(locks->begin(), locks->end(),
                                    [&](const Lock& lock) { return lock.token == token; });
    if (known == locks->end()) {
      return stateError(StateError::NoSuchLock, "there is no such lock");
    }
    Lock lock = *known;
    lock.expires = now + cut(seconds);
    const Status refreshed = connection.change(kRefresh, std::string_view(token),
                                               static_cast<std::int64_t>(lock.expires));
    if (!refreshed) return refreshed.error();
    return lock;
  });
}

Status State::bindName(const File& file) {
  if (!file.identity.exists()) return {};
  const File name{file.path, {}, {}};
  const auto isLocked =
      store_->read([&](StateConnection& connection) { return placeOf(connection, name); });
  if (!isLocked) return isLocked.error();
  if (!*isLocked) return {};
  return store_->write([&](StateConnection& connection) -> Status {
    const auto onName = placeOf(connection, name);
    if (!onName) return onName.error();
    if (!*onName) return {};
    const auto known = madeFileOf(connection, file);
    if (!known) return known.error();
    Status moved = connection.change(kMoveLocks, (*onName)->file, *known);
    if (!moved) return moved;
    return dropPlace(connection, file.path, **onName);
  });
}

Status State::removeLock(const std::string& token) {
  return store_->write([&](StateConnection& connection) -> Status {
    const auto files = filesFrom(connection, kFileOfToken, std::string_view(token));
    if (!files) return files.error();
    Status removed = connection.change(kRemoveToken, std::string_view(token));
    if (!removed) return removed;
    return dropBare(connection, *files);
  });
}

Result<int> State::removeLocksOn(const std::string& path) {
  if (Status valid = checkPath(path); !valid) return valid.error();
  const auto places = placesAt(*store_, path);
  if (!places) return places.error();
  if (places->empty()) return 0;
  return store_->write([&](StateConnection& connection) -> Result<int> {
    // Those that are over do not count.
    if (const Status removed = removeOver(connection, store_->now()); !removed) {
      return removed.error();
    }
    const auto known = placesAt(connection, path);
    if (!known) return known.error();
    std::vector<std::int64_t> files;
    for (const KnownPlace& place : *known) files.push_back(place.file);
    return removeOfFiles(connection, files);
  });
}

Result<int> State::removeLocksOfTree(const std::string& path) {
  if (Status valid = checkPath(path); !valid) return valid.error();
  return store_->write([&](StateConnection& connection) -> Result<int> {
    const Tree tree(path);
    const auto files =
        filesFrom(connection, kFilesOfTree, Blob{tree.top.folder}, Blob{tree.top.name},
                  Blob{tree.inside}, Blob{tree.first}, Blob{tree.afterLast});
    if (!files) return files.error();
    return removeOfFiles(connection, *files);
  });
}

}  // namespace tessel
