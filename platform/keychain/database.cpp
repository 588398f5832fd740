#include "platform/keychain/database.h"

#include <sqlite3.h>

#include <algorithm>

namespace tessel {

namespace {

// Another run that is writing is waited for however long it takes, as child programs are: giving up
// would turn two commands at once into a failure. A writer that died holds no lock.
int waitForLock(void* /*unused*/, int tries) {
  constexpr int kLongestPause = 50;  // milliseconds
  (void)sqlite3_sleep(std::min(tries + 1, kLongestPause));
  return 1;
}

}  // namespace

Statement::Statement(sqlite3* database, const char* sql) {
  sqlite3_stmt* prepared = nullptr;
  result_ = sqlite3_prepare_v2(database, sql, -1, &prepared, nullptr);
  statement_ = {prepared, sqlite3_finalize};
}

Statement& Statement::bind(std::string_view text) {
  (void)sqlite3_bind_text(statement_.get(), ++bound_, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bind(std::int64_t number) {
  (void)sqlite3_bind_int64(statement_.get(), ++bound_, number);
  return *this;
}

Statement& Statement::bindBlob(std::string_view bytes) {
  // The caller's bytes outlive the statement_: no copy of a key is made here.
  (void)sqlite3_bind_blob(statement_.get(), ++bound_, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_STATIC);
  return *this;
}

bool Statement::step() {
  if (!statement_) return false;
  result_ = sqlite3_step(statement_.get());
  return result_ == SQLITE_ROW;
}

bool Statement::failed() const {
  return result_ != SQLITE_OK && result_ != SQLITE_ROW && result_ != SQLITE_DONE;
}

bool Statement::run() { return !step() && !failed(); }

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string_view Statement::bytes(int column) const {
  const void* data = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {static_cast<const char*>(data), static_cast<size_t>(size)};
}

Result<Database> Database::open(const std::string& path) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
  Database database;
  database.database_ = {opened, sqlite3_close};
  if (result != SQLITE_OK) {
    return opened == nullptr ? Error{sqlite3_errstr(result)} : database.error();
  }
  (void)sqlite3_busy_handler(opened, waitForLock, nullptr);
  // A file can be made so that reading it never ends, from its schema on. No statement on a
  // keychain of less than 20,000 items needs so many steps.
  constexpr int kMostSteps = 2'000'000;
  sqlite3_progress_handler(
      opened, kMostSteps, [](void* /*unused*/) { return 1; }, nullptr);
  // What is deleted is overwritten; a commit is on disk, folder entry included, when it returns;
  // and the file's schema can make no use of functions with side effects.
  if (!database.execute("PRAGMA secure_delete = ON; PRAGMA synchronous = EXTRA;"
                        "PRAGMA trusted_schema = OFF; PRAGMA temp_store = MEMORY;")) {
    return database.error();
  }
  return database;
}

Statement Database::prepare(const char* sql) const { return {database_.get(), sql}; }

bool Database::execute(const char* sql) const {
  return sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::int64_t Database::number(const char* sql) const {
  Statement statement = prepare(sql);
  return statement.step() ? statement.number(0) : 0;
}

std::int64_t Database::lastRowID() const { return sqlite3_last_insert_rowid(database_.get()); }

bool Database::failedToSyncFolder() const {
  return sqlite3_extended_errcode(database_.get()) == SQLITE_IOERR_DIR_FSYNC;
}

Error Database::error() const { return Error{sqlite3_errmsg(database_.get())}; }

Transaction::Transaction(const Database& database)
    : database_(database), begun_(database.execute("BEGIN IMMEDIATE")) {}

Transaction::~Transaction() {
  if (begun_) (void)database_.execute("ROLLBACK");
}

bool Transaction::commit() {
  if (!begun_) return false;
  // The journal goes last: once it is gone, the changes have been made, and as with other files a
  // folder that cannot be synced is no failure.
  begun_ = !database_.execute("COMMIT") && !database_.failedToSyncFolder();
  return !begun_;
}

}  // namespace tessel
