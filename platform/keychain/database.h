// An SQLite database and its statements, as far as the keychain needs them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/base/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tessel {

// One prepared statement. A step that fails is remembered by the database, whose error() tells it.
class Statement {
 public:
  Statement(sqlite3* database, const char* sql);

  // Values for the statement's parameters, from the first on.
  Statement& bind(std::string_view text);
  Statement& bind(std::int64_t number);
  Statement& bindBlob(std::string_view bytes);

  // Runs up to the next row. False at the end and on failure; failed() tells them apart.
  bool step();
  bool failed() const;
  // Runs a statement that yields no rows. False on failure.
  bool run();

  // Column values of the current row; views are valid until the next step.
  std::int64_t number(int column) const;
  std::string_view bytes(int column) const;

 private:
  std::shared_ptr<sqlite3_stmt> statement_;
  int bound_ = 0;
  int result_ = 0;  // of the last call, SQLITE_OK at first
};

class Database {
 public:
  // Opens an existing file. Waits without limit while another process holds it locked.
  static Result<Database> open(const std::string& path);

  Statement prepare(const char* sql) const;
  // Runs statements without parameters. False on failure.
  bool execute(const char* sql) const;
  // The first column of a query's first row, 0 when there is none.
  std::int64_t number(const char* sql) const;
  // The id that the last insertion gave its row.
  std::int64_t lastRowID() const;
  // The reason of the last failure, and whether it was that a folder could not be synced.
  Error error() const;
  bool failedToSyncFolder() const;

 private:
  std::shared_ptr<sqlite3> database_;
};

// Takes the write lock at once and gives it back, undoing every change, unless committed.
class Transaction {
 public:
  explicit Transaction(const Database& database);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  Transaction(Transaction&&) = delete;
  Transaction& operator=(Transaction&&) = delete;
  ~Transaction();

  explicit operator bool() const { return begun_; }
  // False when the changes could not be made durable; they are undone then.
  bool commit();

 private:
  const Database& database_;
  bool begun_;
};

}  // namespace tessel
