// The state database's file and the connections to it: makes it, keeps a few connections open for
// the threads of this process, and sets it aside when it is damaged.
//
// FOLDER/current/state.db is the database, with SQLite's log and index beside it, so that one
// rename takes away all that belongs together; FOLDER/turn is locked while a database is opened,
// made or set aside.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/debian/mod_tessel/state/file.h"
#include "host/debian/mod_tessel/state/state.h"
#include "platform/database/database.h"
#include "platform/files/file_descriptor.h"

namespace tessel {

// An Error with the code of a StateError.
Error stateError(StateError kind, std::string description);
// What State tells for an Error of the database; one that has a StateError's code stays.
Error asStateError(const Error& error);

// One connection and its statements, each prepared when it is first needed.
class StateConnection {
 public:
  // In this folder; makes it and the database in it when there are none. When what is there is no
  // such database, the Error's failureOf() is Damaged.
  static Result<std::unique_ptr<StateConnection>> open(const std::string& folder,
                                                       std::int64_t greatestSize);

  const sql::Database& database() const { return database_; }
  // Of the database's file.
  const FileIdentity& identity() const { return identity_; }
  // Whether its pages make sense.
  Status check() const;
  // Whether properties may grow: an eighth of the greatest size is left to locks and to removing.
  Result<bool> hasRoom();

  // Runs a statement, the text of which is a constant, with these values.
  template <typename... Values>
  Status change(const char* sql, const Values&... values) {
    return rows(
        sql, [](const sql::Statement&) { return true; }, values...);
  }
  // Hands over each row until it is told false.
  template <typename Row, typename... Values>
  Status rows(const char* sql, Row&& row, const Values&... values) {
    const auto statement = prepared(sql);
    if (!statement) return statement.error();
    const Running running{**statement};
    running.statement.with(values...);
    for (;;) {
      const Result<bool> found = running.statement.step();
      if (!found) return found.error();
      if (!*found || !row(std::as_const(running.statement))) return {};
    }
  }
  // The first column of the first row, 0 when there is none.
  template <typename... Values>
  Result<std::int64_t> number(const char* sql, const Values&... values) {
    std::int64_t number = 0;
    const Status status = rows(
        sql,
        [&](const sql::Statement& row) {
          number = row.number(0);
          return false;
        },
        values...);
    if (!status) return status.error();
    return number;
  }
  // The same of a question without values, outside any transaction. The answer is remembered until
  // somebody, in whichever process, commits something.
  Result<std::int64_t> rememberedNumber(const char* sql);

 private:
  struct Remembered {
    sql::Moment moment{};
    std::int64_t number = 0;
  };
  struct Running {
    sql::Statement& statement;
    explicit Running(sql::Statement& running) : statement(running) {}
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    Running(Running&&) = delete;
    Running& operator=(Running&&) = delete;
    ~Running() { statement.reset(); }
  };

  StateConnection(sql::Database database, const FileIdentity& identity, std::int64_t pages)
      : database_(std::move(database)), identity_(identity), pages_(pages) {}
  Result<sql::Statement*> prepared(const char* sql);

  sql::Database database_;
  FileIdentity identity_;
  std::int64_t pages_;  // at most
  std::unordered_map<const char*, sql::Statement> statements_;
  std::unordered_map<const char*, Remembered> remembered_;
};

class StateStore {
 public:
  // A connection for one thread, given back at the end.
  class Lease {
   public:
    Lease(StateStore& store, std::unique_ptr<StateConnection> connection)
        : store_(&store), connection_(std::move(connection)) {}
    Lease(Lease&&) noexcept = default;
    Lease& operator=(Lease&&) = delete;
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease() {
      if (connection_) store_->giveBack(std::move(connection_));
    }

    StateConnection& operator*() const { return *connection_; }
    StateConnection* operator->() const { return connection_.get(); }
    // Closes it instead.
    void discard() { connection_.reset(); }

   private:
    StateStore* store_;
    std::unique_ptr<StateConnection> connection_;
  };

  explicit StateStore(State::Options options);

  std::time_t now() const;

  // What `function` makes of a connection, a Status or Result. When it finds the database damaged,
  // it gets a fresh one. Errors are StateErrors. A database that another process has put in place
  // may be noticed some milliseconds late.
  template <typename Function>
  auto read(Function&& function) -> std::invoke_result_t<Function, StateConnection&> {
    return use(Look::Lately, std::forward<Function>(function));
  }

  // The same for what asks more than once: all answers are of one moment, and cheaper.
  template <typename Function>
  auto readAtOnce(Function&& function) -> std::invoke_result_t<Function, StateConnection&> {
    using Outcome = std::invoke_result_t<Function, StateConnection&>;
    return read([&](StateConnection& connection) -> Outcome {
      if (const Status begun = connection.change("BEGIN"); !begun) return begun.error();
      Outcome outcome = function(connection);
      const Status ended = connection.change("COMMIT");
      if (outcome && !ended) return ended.error();
      return outcome;
    });
  }

  // The same inside a transaction, which is committed when `function` succeeds.
  template <typename Function>
  auto write(Function&& function) -> std::invoke_result_t<Function, StateConnection&> {
    using Outcome = std::invoke_result_t<Function, StateConnection&>;
    return use(Look::Now, [&](StateConnection& connection) -> Outcome {
      const auto turn = turnToWrite();
      if (!turn) return tooBusy();
      auto transaction = sql::Transaction::begin(connection.database());
      if (!transaction) return transaction.error();
      Outcome outcome = function(connection);
      if (!outcome) return outcome;
      const Status committed = transaction->commit();
      if (!committed) return committed.error();
      return outcome;
    });
  }

  // For a transaction that lasts over several calls. The threads of a process take turns here, not
  // by asking the file again and again.
  Result<Lease> connection() { return connection(Look::Now); }
  std::unique_lock<std::timed_mutex> turnToWrite();
  static Error tooBusy();
  // After a failure: discards the connection if something is wrong with it, and sets the database
  // aside if it is damaged. Whether a fresh one can be had now.
  bool recover(Lease& lease, const Error& error);

  // The path up to which was looked for files that are gone, from any thread.
  std::string lookedAt();
  void setLookedAt(std::string path);

 private:
  // When it is, or was, looked at which database stands there.
  enum class Look { Now, Lately };

  template <typename Function>
  auto use(Look look, Function&& function) -> std::invoke_result_t<Function, StateConnection&> {
    using Outcome = std::invoke_result_t<Function, StateConnection&>;
    for (bool isFirst = true;; isFirst = false) {
      Result<Lease> lease = connection(look);
      if (!lease) return lease.error();
      Outcome outcome = function(**lease);
      if (outcome) return outcome;
      if (!recover(*lease, outcome.error()) || !isFirst) return asStateError(outcome.error());
      look = Look::Now;
    }
  }

  Result<Lease> connection(Look look);
  Result<FileIdentity> standing(Look look);  // of the database that stands there
  Status checkFolder() const;
  // Held while its descriptor is open.
  Result<FileDescriptor> takeTurn() const;
  Result<std::unique_ptr<StateConnection>> open();
  Status setAside(const std::string& reason);
  void giveBack(std::unique_ptr<StateConnection> connection);

  const State::Options options_;
  const std::string current_;
  const std::string file_;
  std::timed_mutex writing_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<StateConnection>> idle_;  // guarded by mutex_
  std::optional<FileIdentity> standing_;                // guarded by mutex_
  std::int64_t standingSeen_ = 0;                       // guarded by mutex_, by coarseClock()
  bool wasChecked_ = false;                             // guarded by mutex_
  std::string lookedAt_;                                // guarded by mutex_
};

}  // namespace tessel
