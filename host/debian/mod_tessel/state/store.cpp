#include "host/debian/mod_tessel/state/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/base/coarse_clock.h"

namespace tessel {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr const char* kDatabaseName = "/state.db";
constexpr std::int64_t kApplicationID = 0x54535354;  // "TSST", in the file's header
constexpr std::int64_t kFormatVersion = 1;
constexpr std::size_t kMostIdleConnections = 16;
constexpr std::size_t kTables = 8;
constexpr std::int64_t kPageSize = 4096;

// What SQLite keeps of these is their text, by which a state database is known. Names and paths are
// bytes. `place` says which file is known under which path and identity; an inode of 0 is the name
// alone. `announced` is when a file was said to come to stand there, 0 once it does;
// `missing` since when the file was seen not to stand there.
constexpr std::array<const char*, kTables> kSchema = {
    "CREATE TABLE file (id INTEGER PRIMARY KEY)",
    "CREATE TABLE place (folder BLOB NOT NULL, name BLOB NOT NULL, inode INTEGER NOT NULL, "
    "birth INTEGER NOT NULL, device INTEGER NOT NULL, "
    "file INTEGER NOT NULL REFERENCES file ON DELETE CASCADE, announced INTEGER NOT NULL, missing "
    "INTEGER NOT NULL, "
    "PRIMARY KEY (folder, name, inode, birth, device)) WITHOUT ROWID",
    "CREATE INDEX place_of_file ON place (file)",
    "CREATE TABLE property (file INTEGER NOT NULL REFERENCES file ON DELETE CASCADE, "
    "space BLOB NOT NULL, name BLOB NOT NULL, value BLOB NOT NULL, "
    "PRIMARY KEY (file, space, name)) WITHOUT ROWID",
    "CREATE TABLE lock (token TEXT PRIMARY KEY, "
    "file INTEGER NOT NULL REFERENCES file ON DELETE CASCADE, exclusive INTEGER NOT NULL, "
    "infinite INTEGER NOT NULL, owner BLOB NOT NULL, user BLOB NOT NULL, created INTEGER NOT NULL, "
    "expires INTEGER NOT NULL) WITHOUT ROWID",
    "CREATE INDEX lock_of_file ON lock (file)",
    "CREATE INDEX lock_of_user ON lock (user)",
    "CREATE INDEX lock_by_end ON lock (expires)"};
constexpr const char* kHeader =
    "PRAGMA application_id = 0x54535354;"
    "PRAGMA user_version = 1;";

// Whether there is all of this, and nothing else: no view or trigger that could run without end.
constexpr const char* kIsOurSchema =
    "SELECT total(sql IN (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)) = 8 AND"
    " total(sql NOT IN (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)) = 0 FROM sqlite_schema";

// A log that others were reading for long is cut when it is begun anew. A processor's fault in a
// page is better found than followed.
constexpr const char* kSettings =
    "PRAGMA page_size = 4096;"
    "PRAGMA journal_mode = WAL;"
    "PRAGMA synchronous = NORMAL;"
    "PRAGMA foreign_keys = ON;"
    "PRAGMA cell_size_check = ON;"
    "PRAGMA journal_size_limit = 4194304;"
    "PRAGMA cache_size = -1024;";
// A database up to here is checked as a whole when a process opens it first; that takes a few
// hundredths of a second.
constexpr off_t kMostChecked = 8L * 1024 * 1024;

// The code of an Error about a database that must be set aside, where SQLite has none.
constexpr int kUnusable = static_cast<int>(StateError::Failed) - 1;

Error unusable(const std::string& reason) { return {reason, kUnusable}; }

bool isDamage(const Error& error) {
  return error.code == kUnusable || sql::failureOf(error) == sql::Failure::Damaged;
}

Error systemError(const std::string& what) {
  return stateError(errno == ENOSPC || errno == EDQUOT ? StateError::Full : StateError::Failed,
                    what + ": " + std::strerror(errno));
}

// Whether SQLite may open what is there: it would wait for ever at a pipe and follow a link.
Status isOrdinary(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return {};
    return systemError("cannot examine " + path);
  }
  if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
    return unusable(path + " is not an ordinary file");
  }
  // Not by opening it: closing it again would give up this process's locks.
  if (::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0) {
    const std::string reason = path + " cannot be read and written";
    return errno == EACCES ? unusable(reason) : systemError(reason);
  }
  return {};
}

Status makeSchema(const sql::Database& database) {
  auto transaction = sql::Transaction::begin(database);
  if (!transaction) return transaction.error();
  for (const char* statement : kSchema) {
    if (Status made = database.execute(statement); !made) return made;
  }
  if (Status made = database.execute(kHeader); !made) return made;
  return transaction->commit();
}

Status checkSchema(const sql::Database& database) {
  const auto tables = database.number("SELECT count(*) FROM sqlite_schema");
  if (!tables) return tables.error();
  const auto application = database.number("PRAGMA application_id");
  if (!application) return application.error();
  const auto version = database.number("PRAGMA user_version");
  if (!version) return version.error();
  if (*tables == 0 && *application == 0 && *version == 0) return makeSchema(database);
  if (*application != kApplicationID) return unusable("it is another program's database");
  if (*version != kFormatVersion) return unusable("another version of this program wrote it");
  auto ours = database.prepare(kIsOurSchema);
  if (!ours) return ours.error();
  const auto isOurs = ours->with(kSchema[0], kSchema[1], kSchema[2], kSchema[3], kSchema[4],
                                 kSchema[5], kSchema[6], kSchema[7])
                          .firstNumber();
  if (!isOurs) return isOurs.error();
  if (*isOurs != 1) return unusable("it has other tables than it should");
  return {};
}

}  // namespace

Error stateError(StateError kind, std::string description) {
  return {std::move(description), static_cast<int>(kind)};
}

Error asStateError(const Error& error) {
  if (error.code >= static_cast<int>(StateError::Failed)) return error;
  StateError kind = StateError::Failed;
  if (sql::failureOf(error) == sql::Failure::Busy) kind = StateError::Busy;
  if (sql::failureOf(error) == sql::Failure::Full) kind = StateError::Full;
  return stateError(kind, "the state database: " + error.description);
}

Result<std::unique_ptr<StateConnection>> StateConnection::open(const std::string& folder,
                                                               std::int64_t greatestSize) {
  struct stat status {};
  if (::mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    return systemError("cannot make the folder " + folder);
  }
  if (::lstat(folder.c_str(), &status) != 0) return systemError("cannot examine " + folder);
  if (!S_ISDIR(status.st_mode)) return unusable(folder + " is not a folder");
  const std::string path = folder + kDatabaseName;
  // The log and the index get the database's mode.
  const FileDescriptor made(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!made && errno == EACCES) return unusable(folder + " cannot be written");
  if (!made && errno != EEXIST) return systemError("cannot make " + path);
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    if (const Status ordinary = isOrdinary(path + suffix); !ordinary) return ordinary.error();
  }
  sql::Database::Options options;
  options.longestWait = std::chrono::seconds(kLongestWait);
  options.greatestValue = static_cast<int>(kMostPropertyBytes);
  options.keepsLog = true;
  auto opened = sql::Database::open(path, options);
  if (!opened) return opened.error();
  if (const Status set = opened->execute(kSettings); !set) return set.error();
  const std::int64_t pages = std::max(greatestSize / kPageSize, std::int64_t{kTables + 2});
  const std::string limit = "PRAGMA max_page_count = " + std::to_string(pages);
  if (const Status set = opened->execute(limit.c_str()); !set) return set.error();
  if (const Status checked = checkSchema(*opened); !checked) return checked.error();
  const auto identity = identityAt(path);
  if (!identity) return identity.error();
  return std::unique_ptr<StateConnection>(
      new StateConnection(std::move(*opened), *identity, pages));
}

Status StateConnection::check() const {
  auto check = database_.prepare("PRAGMA quick_check(1)");
  if (!check) return check.error();
  const auto row = check->step();
  if (!row) return row.error();
  if (!*row || check->bytes(0) != "ok") return unusable("its pages make no sense");
  return {};
}

Result<bool> StateConnection::hasRoom() {
  const auto used = number("PRAGMA page_count");
  if (!used) return used.error();
  const auto unused = number("PRAGMA freelist_count");
  if (!unused) return unused.error();
  return *used - *unused <= pages_ / 8 * 7;
}

Result<sql::Statement*> StateConnection::prepared(const char* sql) {
  auto found = statements_.find(sql);
  if (found == statements_.end()) {
    auto statement = database_.prepare(sql);
    if (!statement) return statement.error();
    found = statements_.emplace(sql, std::move(*statement)).first;
  }
  return &found->second;
}

Result<std::int64_t> StateConnection::rememberedNumber(const char* sql) {
  // Looked at before the question, so that an answer is never taken for a later one.
  const auto moment = database_.moment();
  if (!moment) return number(sql);
  const auto found = remembered_.find(sql);
  if (found != remembered_.end() && found->second.moment == *moment) return found->second.number;
  auto answer = number(sql);
  if (answer) remembered_.insert_or_assign(sql, Remembered{*moment, *answer});
  return answer;
}

StateStore::StateStore(State::Options options)
    : options_(std::move(options)),
      current_(options_.folder + "/current"),
      file_(current_ + kDatabaseName) {}

std::time_t StateStore::now() const { return options_.now ? options_.now() : std::time(nullptr); }

Error StateStore::tooBusy() {
  return stateError(StateError::Busy, "others keep the state database busy");
}

std::unique_lock<std::timed_mutex> StateStore::turnToWrite() {
  return {writing_, std::chrono::seconds(kLongestWait)};
}

std::string StateStore::lookedAt() {
  const std::lock_guard lock(mutex_);
  return lookedAt_;
}

void StateStore::setLookedAt(std::string path) {
  const std::lock_guard lock(mutex_);
  lookedAt_ = std::move(path);
}

Result<FileIdentity> StateStore::standing(Look look) {
  if (look == Look::Lately) {
    const std::lock_guard lock(mutex_);
    if (standing_ && isRecent(standingSeen_)) return *standing_;
  }
  const std::int64_t now = coarseClock();
  auto found = identityAt(file_);
  if (!found) return stateError(StateError::Failed, found.error().description);
  const std::lock_guard lock(mutex_);
  standing_ = *found;
  standingSeen_ = now;
  return found;
}

Result<StateStore::Lease> StateStore::connection(Look look) {
  const auto standing = this->standing(look);
  if (!standing) return standing.error();
  {
    const std::lock_guard lock(mutex_);
    while (!idle_.empty()) {
      std::unique_ptr<StateConnection> connection = std::move(idle_.back());
      idle_.pop_back();
      // The database may have been set aside by another process, or replaced by a backup.
      if (connection->identity().isSameFile(*standing)) return Lease(*this, std::move(connection));
    }
  }
  auto opened = open();
  if (!opened) return asStateError(opened.error());
  const std::lock_guard lock(mutex_);
  standing_ = (*opened)->identity();
  return Lease(*this, std::move(*opened));
}

void StateStore::giveBack(std::unique_ptr<StateConnection> connection) {
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kMostIdleConnections) idle_.push_back(std::move(connection));
}

bool StateStore::recover(Lease& lease, const Error& error) {
  if (error.code >= static_cast<int>(StateError::Failed)) return false;
  const sql::Failure failure = sql::failureOf(error);
  if (failure == sql::Failure::Busy || failure == sql::Failure::Full) return false;
  std::string reason = error.description;
  bool isBad = isDamage(error);
  if (failure == sql::Failure::TooLong) {
    // Is there no end to it, or just much of it?
    const Status checked = lease->check();
    isBad = !checked &&
            (isDamage(checked.error()) || sql::failureOf(checked.error()) == sql::Failure::TooLong);
  }
  const FileIdentity identity = lease->identity();
  lease.discard();
  if (!isBad) return false;
  const auto turn = takeTurn();
  if (!turn) return false;
  const auto standing = identityAt(file_);
  if (!standing) return false;
  // Another process may have been faster.
  return !standing->isSameFile(identity) || setAside(reason);
}

Status StateStore::checkFolder() const {
  struct stat status {};
  if (::lstat(options_.folder.c_str(), &status) != 0) {
    return systemError("cannot use the folder " + options_.folder);
  }
  if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid() ||
      (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return stateError(StateError::Failed,
                      options_.folder + " is not a folder of this process's user alone");
  }
  return {};
}

Result<FileDescriptor> StateStore::takeTurn() const {
  constexpr auto kPause = std::chrono::milliseconds(5);
  const std::string path = options_.folder + "/turn";
  FileDescriptor file(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kFileMode));
  if (!file) return systemError("cannot open " + path);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kLongestWait);
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return systemError("cannot lock " + path);
    if (std::chrono::steady_clock::now() >= end) return tooBusy();
    std::this_thread::sleep_for(kPause);
  }
  return file;
}

Result<std::unique_ptr<StateConnection>> StateStore::open() {
  if (const Status usable = checkFolder(); !usable) return usable.error();
  const auto turn = takeTurn();
  if (!turn) return turn.error();
  const auto openChecked = [&]() -> Result<std::unique_ptr<StateConnection>> {
    auto opened = StateConnection::open(current_, options_.greatestSize);
    if (!opened) return opened;
    struct stat status {};
    const bool isSmall = ::stat(file_.c_str(), &status) == 0 && status.st_size <= kMostChecked;
    const std::lock_guard lock(mutex_);
    if (isSmall && !wasChecked_) {
      if (const Status checked = (*opened)->check(); !checked) return checked.error();
    }
    wasChecked_ = true;
    return opened;
  };
  auto opened = openChecked();
  if (opened ||
      !(isDamage(opened.error()) || sql::failureOf(opened.error()) == sql::Failure::TooLong)) {
    return opened;
  }
  if (const Status aside = setAside(opened.error().description); !aside) return aside.error();
  return openChecked();
}

Status StateStore::setAside(const std::string& reason) {
  constexpr int kMostTries = 1000;
  const std::time_t time = now();
  tm parts{};
  std::array<char, 32> date{};
  if (::gmtime_r(&time, &parts) == nullptr ||
      std::strftime(date.data(), date.size(), "%Y%m%dT%H%M%SZ", &parts) == 0) {
    date.front() = '0';
  }
  const std::string stem = options_.folder + "/set-aside-" + date.data();
  for (int count = 1; count <= kMostTries; ++count) {
    std::string path = stem;
    if (count > 1) path.append("-").append(std::to_string(count));
    if (::renameat2(AT_FDCWD, current_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
      if (options_.log) {
        std::string line = "The database of properties and locks was set aside as ";
        options_.log(line.append(path).append(" and a fresh one is made: ").append(reason));
      }
      return {};
    }
    if (errno != EEXIST) return systemError("cannot set aside " + current_);
  }
  return stateError(StateError::Failed, "too many databases were set aside in " + options_.folder);
}

}  // namespace tessel
