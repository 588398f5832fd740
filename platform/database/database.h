// An SQLite database, its statements and transactions. Every Error carries SQLite's own words, and
// failureOf() tells what kind it is. A connection, with all that came from it, belongs to one
// thread at a time and does not outlive a fork. Nothing throws.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tessel::sql {

enum class Failure {
  Other,
  Busy,       // another connection holds a lock
  Full,       // the disk or the database is full
  Damaged,    // no database, or one whose content makes no sense or cannot be read
  TooLong,    // a statement took longer than it may: a file can be made so that reading never ends
  NotSynced,  // the changes have been made, but their folder could not be synced
};
// Of an Error that this room returned.
Failure failureOf(const Error& error);

// Values for a statement's parameters; a string_view is text, an integer a number.
struct Blob {
  std::string_view bytes;
};
// A blob of which no copy is made, a key: the bytes must stay until the statement is reset.
struct BorrowedBlob {
  std::string_view bytes;
};

struct Limits;

// One prepared statement, to be run any number of times.
class Statement {
 public:
  // Makes it ready to run anew, with these values for its parameters from the first on.
  template <typename... Values>
  Statement& with(const Values&... values) {
    reset();
    int position = 0;
    (bind(++position, values), ...);
    return *this;
  }

  // Runs up to the next row; whether there is one.
  Result<bool> step();
  // Runs to the end, past any rows.
  Status run();
  // The first column of the first row, 0 when there is no row.
  Result<std::int64_t> firstNumber();
  // Lets go of what the statement holds locked.
  void reset();

  // Column values of the current row; views are valid until the next step or reset. What is of
  // another type is converted: text to 0, a number to its digits.
  std::int64_t number(int column) const;
  std::string_view bytes(int column) const;

 private:
  friend class Database;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };

  explicit Statement(sqlite3_stmt* statement, std::shared_ptr<Limits> limits);
  void bind(int position, std::string_view text);
  void bind(int position, std::int64_t number);
  void bind(int position, Blob blob);
  void bind(int position, BorrowedBlob blob);
  void noteBinding(int result);

  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  std::shared_ptr<Limits> limits_;
  int bindingResult_ = 0;  // of the first value that could not be bound
  bool isRunning_ = false;
};

// A moment of a database with a write-ahead log: between two equal ones nothing was committed.
using Moment = std::array<std::uint32_t, 12>;

class Database {
 public:
  struct Options {
    bool mayCreate = false;  // else the file must exist
    // How long another connection's lock is waited for; without an end when absent.
    std::optional<std::chrono::milliseconds> longestWait;
    // The processor's time that one statement may take.
    std::chrono::milliseconds longestStatement = std::chrono::seconds(10);
    int greatestValue = 1'000'000'000;  // bytes of a string, blob or row
    // Leaves a write-ahead log as it is when the last connection is closed.
    bool keepsLog = false;
  };

  // Opens a file whose last component is no link. Its schema can make no use of functions with side
  // effects, and temporary tables stay in memory.
  static Result<Database> open(const std::string& path, const Options& options);

  Result<Statement> prepare(const char* sql) const;
  // Runs statements without parameters.
  Status execute(const char* sql) const;
  // The first column of a query's first row, 0 when there is none.
  Result<std::int64_t> number(const char* sql) const;
  // The id that the last insertion gave its row.
  std::int64_t lastRowID() const;
  // How many rows the last INSERT, UPDATE or DELETE changed.
  std::int64_t changedRows() const;
  // The present one, after whatever any process has committed; none while one is committing. Only
  // of a database with a write-ahead log that this connection has read. No call of the system.
  std::optional<Moment> moment() const;
  // Hands what the open transaction has changed to the kernel, so that a full disk shows now.
  Status flush() const;

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
    std::shared_ptr<Limits> limits;  // which the connection looks at until it is closed
  };

  Error lastError() const;

  std::unique_ptr<sqlite3, Close> connection_;
};

// Takes the write lock at once and gives it back, undoing every change, unless committed.
class Transaction {
 public:
  static Result<Transaction> begin(const Database& database);
  Transaction(Transaction&& other) noexcept;
  Transaction& operator=(Transaction&&) = delete;
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  // On failure the changes are undone, but for NotSynced.
  Status commit();

 private:
  explicit Transaction(const Database& database) : database_(&database) {}
  const Database* database_;  // null once the transaction is over
};

}  // namespace tessel::sql
