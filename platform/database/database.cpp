#include "platform/database/database.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tessel::sql {

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

nanoseconds processorTime() {
  timespec time{};
  (void)::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

Error errorOf(sqlite3* connection) {
  // SQLite takes no notice of quotas.
  if (sqlite3_extended_errcode(connection) == SQLITE_IOERR_WRITE &&
      sqlite3_system_errno(connection) == EDQUOT) {
    return {std::strerror(EDQUOT), SQLITE_FULL};
  }
  return {sqlite3_errmsg(connection), sqlite3_extended_errcode(connection)};
}

}  // namespace

Failure failureOf(const Error& error) {
  constexpr int kPrimary = 0xFF;
  switch (error.code) {
    case SQLITE_IOERR_DIR_FSYNC:
      return Failure::NotSynced;
    case SQLITE_IOERR_SHMSIZE:
      return Failure::Full;
    case SQLITE_IOERR_READ:
    case SQLITE_IOERR_SHORT_READ:
    case SQLITE_IOERR_CORRUPTFS:
      return Failure::Damaged;
    default:
      break;
  }
  switch (error.code & kPrimary) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return Failure::Busy;
    case SQLITE_FULL:
      return Failure::Full;
    // What no statement of ours would meet in a database that it has written itself.
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_SCHEMA:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
      return Failure::Damaged;
    case SQLITE_INTERRUPT:
      return Failure::TooLong;
    default:
      return Failure::Other;
  }
}

// Shared by a connection and its statements. The time that one may take begins anew whenever one is
// started.
struct Limits {
  std::optional<std::chrono::milliseconds> longestWait;
  nanoseconds longestStatement{};
  nanoseconds end{};  // 0 before the first look at the clock
  steady_clock::time_point waitEnd;

  // A writer that died holds no lock, so whoever waits without an end waits for one that works.
  static int waitForLock(void* self, int tries) {
    constexpr int kLongestPause = 20;  // milliseconds
    auto& limits = *static_cast<Limits*>(self);
    if (limits.longestWait) {
      const auto now = steady_clock::now();
      if (tries == 0) limits.waitEnd = now + *limits.longestWait;
      if (now >= limits.waitEnd) return 0;
    }
    (void)sqlite3_sleep(std::min(tries + 1, kLongestPause));
    return 1;
  }

  // Most statements end before anybody asks, which spares them a call of the system.
  static int isOver(void* self) {
    auto& limits = *static_cast<Limits*>(self);
    const nanoseconds now = processorTime();
    if (limits.end == nanoseconds::zero()) limits.end = now + limits.longestStatement;
    return now > limits.end ? 1 : 0;
  }

  void start() { end = nanoseconds::zero(); }
};

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
  (void)sqlite3_finalize(statement);
}

Statement::Statement(sqlite3_stmt* statement, std::shared_ptr<Limits> limits)
    : statement_(statement), limits_(std::move(limits)) {}

void Statement::noteBinding(int result) {
  if (bindingResult_ == SQLITE_OK) bindingResult_ = result;
}

void Statement::bind(int position, std::string_view text) {
  noteBinding(sqlite3_bind_text64(statement_.get(), position, text.data() ? text.data() : "",
                                  text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bind(int position, std::int64_t number) {
  noteBinding(sqlite3_bind_int64(statement_.get(), position, number));
}

void Statement::bind(int position, Blob blob) {
  noteBinding(sqlite3_bind_blob64(statement_.get(), position,
                                  blob.bytes.data() ? blob.bytes.data() : "", blob.bytes.size(),
                                  SQLITE_TRANSIENT));
}

void Statement::bind(int position, BorrowedBlob blob) {
  noteBinding(sqlite3_bind_blob64(statement_.get(), position,
                                  blob.bytes.data() ? blob.bytes.data() : "", blob.bytes.size(),
                                  SQLITE_STATIC));
}

Result<bool> Statement::step() {
  if (bindingResult_ != SQLITE_OK) return Error{sqlite3_errstr(bindingResult_), bindingResult_};
  if (!isRunning_) limits_->start();
  isRunning_ = true;
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  return errorOf(sqlite3_db_handle(statement_.get()));
}

Status Statement::run() {
  for (;;) {
    const Result<bool> row = step();
    if (!row) return row.error();
    if (!*row) return {};
  }
}

Result<std::int64_t> Statement::firstNumber() {
  const Result<bool> row = step();
  if (!row) return row.error();
  return *row ? number(0) : 0;
}

void Statement::reset() {
  (void)sqlite3_reset(statement_.get());  // tells again how the last run ended
  (void)sqlite3_clear_bindings(statement_.get());
  bindingResult_ = SQLITE_OK;
  isRunning_ = false;
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string_view Statement::bytes(int column) const {
  const void* data = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return data == nullptr ? std::string_view()
                         : std::string_view(static_cast<const char*>(data), size_t(size));
}

void Database::Close::operator()(sqlite3* connection) const { (void)sqlite3_close_v2(connection); }

Result<Database> Database::open(const std::string& path, const Options& options) {
  constexpr int kStepsBetweenLooks = 10'000;
  const int create = options.mayCreate ? SQLITE_OPEN_CREATE : 0;
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX |
                                         SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_EXRESCODE | create,
                                     nullptr);
  Database database;
  database.connection_ = {opened, Close{std::make_shared<Limits>()}};
  if (result != SQLITE_OK) {
    return opened == nullptr ? Error{sqlite3_errstr(result), result} : errorOf(opened);
  }
  Limits& limits = *database.connection_.get_deleter().limits;
  limits.longestWait = options.longestWait;
  limits.longestStatement = options.longestStatement;
  (void)sqlite3_busy_handler(opened, Limits::waitForLock, &limits);
  sqlite3_progress_handler(opened, kStepsBetweenLooks, Limits::isOver, &limits);
  (void)sqlite3_limit(opened, SQLITE_LIMIT_LENGTH, options.greatestValue);
  (void)sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  (void)sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, options.keepsLog ? 1 : 0,
                          nullptr);
  (void)sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  if (const Status set = database.execute("PRAGMA temp_store = MEMORY"); !set) return set.error();
  return database;
}

Error Database::lastError() const { return errorOf(connection_.get()); }

Result<Statement> Database::prepare(const char* sql) const {
  connection_.get_deleter().limits->start();
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v3(connection_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                         nullptr) != SQLITE_OK) {
    return lastError();
  }
  return Statement(prepared, connection_.get_deleter().limits);
}

Status Database::execute(const char* sql) const {
  connection_.get_deleter().limits->start();
  if (sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    return lastError();
  }
  return {};
}

Result<std::int64_t> Database::number(const char* sql) const {
  Result<Statement> statement = prepare(sql);
  if (!statement) return statement.error();
  return statement->firstNumber();
}

std::int64_t Database::lastRowID() const { return sqlite3_last_insert_rowid(connection_.get()); }

std::int64_t Database::changedRows() const { return sqlite3_changes64(connection_.get()); }

// The index of the log, which all connections have in memory, begins with two copies of a header
// that every commit changes, the second one first (sqlite.org/walformat.html, 2.1). By it SQLite
// itself judges whether what it has read of the database still holds.
std::optional<Moment> Database::moment() const {
  constexpr int kRegionBytes = 32 * 1024;
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) !=
          SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr || file->pMethods->iVersion < 2) {
    return std::nullopt;
  }
  volatile void* region = nullptr;
  if (file->pMethods->xShmMap(file, 0, kRegionBytes, 0, &region) != SQLITE_OK ||
      region == nullptr) {
    return std::nullopt;
  }
  const volatile auto* word = static_cast<const volatile std::uint32_t*>(region);
  Moment first{};
  Moment second{};
  for (std::uint32_t& copied : first) copied = __atomic_load_n(word++, __ATOMIC_ACQUIRE);
  for (std::uint32_t& copied : second) copied = __atomic_load_n(word++, __ATOMIC_ACQUIRE);
  const bool isBegun = first.front() != 0;  // the format's version
  if (!isBegun || first != second) return std::nullopt;
  return first;
}

Status Database::flush() const {
  // Alone among SQLite's functions, this one leaves no message behind.
  const int result = sqlite3_db_cacheflush(connection_.get());
  if (result != SQLITE_OK) return Error{sqlite3_errstr(result), result};
  return {};
}

Result<Transaction> Transaction::begin(const Database& database) {
  if (const Status begun = database.execute("BEGIN IMMEDIATE"); !begun) return begun.error();
  return Transaction(database);
}

Transaction::Transaction(Transaction&& other) noexcept
    : database_(std::exchange(other.database_, nullptr)) {}

Transaction::~Transaction() {
  if (database_ != nullptr) (void)database_->execute("ROLLBACK");
}

Status Transaction::commit() {
  if (database_ == nullptr) return Error{"the transaction is over"};
  Status committed = database_->execute("COMMIT");
  // With a rollback journal the journal goes last: once it is gone, the changes have been made.
  if (committed || failureOf(committed.error()) == Failure::NotSynced) database_ = nullptr;
  return committed;
}

}  // namespace tessel::sql
