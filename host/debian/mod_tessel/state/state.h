// Properties that clients set, and their locks, for all files of all shares: one SQLite database
// that belongs to Apache's user alone. What counts is what was set on the file that stands at a
// path now; what is known of another that stood there before is as good as absent.
//
// One State serves all threads of a process. It holds connections to the database, which do not
// outlive a fork: make it in the child. Any number of processes share one folder; readers never
// wait, writers take turns. A change is in the hands of the kernel when a call returns, so that a
// killed process loses nothing that was answered and leaves nothing half done; a power cut may
// cost the last changes, never the whole.
//
// A database that is damaged, of another version or no database at all is set aside in the same
// folder, a line is logged, and a fresh one takes its place. Nothing here throws, except
// std::bad_alloc.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/debian/mod_tessel/state/file.h"
#include "platform/base/result.h"

namespace tessel {

// The folder on this host; the package makes it for Apache's user, mode 0700.
constexpr const char* kStateFolder = "/var/lib/tessel-dav";

// The code of every Error that State returns. What would change something at a path that is not
// absolute is Failed: "" would mean all paths.
enum class StateError {
  Failed = 100'000,  // the database cannot be used
  Busy,              // others have kept it busy for kLongestWait seconds
  Full,              // the disk, or the database at its greatest size, is full; nothing was changed
  TooMuch,           // beyond one of the bounds below; nothing was changed
  Locked,            // another lock is in the way
  NoSuchLock,        // none of this token holds there, or it is over
};
inline StateError kindOf(const Error& error) { return static_cast<StateError>(error.code); }

// Bounds. The time is in seconds, sizes are in bytes.
constexpr int kLongestWait = 5;
constexpr std::size_t kMostValueBytes = 64UL * 1024;  // of a property
constexpr std::size_t kMostNameBytes = 4UL * 1024;    // of a property's name with its namespace
constexpr std::size_t kMostProperties = 1000;         // of a file
constexpr std::size_t kMostPropertyBytes = 1024UL * 1024;  // of a file, names and values
constexpr std::size_t kMostOwnerBytes = 64UL * 1024;       // of a lock
constexpr std::size_t kMostUserOwnerBytes = 256UL * 1024;  // of all locks of a user
constexpr std::size_t kMostUserLocks = 1000;               // of a user
constexpr std::size_t kMostFileLocks = 64;                 // shared ones, on one file
constexpr std::time_t kLongestLock = 3600;

struct Property {
  std::string space;  // the namespace's URI, empty for none
  std::string name;
  std::string value;  // whatever was given: the caller's own form of element, language and content
};

struct Lock {
  std::string token;  // a UUID, 36 characters in lower case, without a scheme
  std::string path;   // of the file that it was set on
  bool isExclusive = true;
  bool isInfinite = false;  // covers all below
  bool isOnName = false;    // nothing stood there when it was set, and it has not been bound since
  std::string owner;        // XML, as it is given
  std::string user;         // who signed in
  std::time_t created = 0;  // seconds since 1970
  std::time_t expires = 0;
  bool isGone = false;  // the file does not stand there any more: the lock holds for nothing
};

// A new token; an Error when the system has no random numbers.
Result<std::string> newLockToken();
// Whether the lock holds for what has this path: it is on it, or covers it from above.
bool covers(const Lock& lock, std::string_view path);
bool covers(const Lock& lock, const File& file);

class StateConnection;
class StateStore;

// Changes to the properties of one file: all of them or, unless committed, none. Others that want
// to change something wait meanwhile, so it must not live while a client is being waited for.
// Belongs to one thread.
class PropertyEdit {
 public:
  PropertyEdit(PropertyEdit&& other) noexcept;
  PropertyEdit& operator=(PropertyEdit&& other) noexcept;
  PropertyEdit(const PropertyEdit&) = delete;
  PropertyEdit& operator=(const PropertyEdit&) = delete;
  ~PropertyEdit();

  // The value as edited so far, none when there is no such property.
  Result<std::optional<std::string>> value(std::string_view space, std::string_view name);
  // Errors: TooMuch, Full, Failed. After Full or Failed the edit is over and nothing was changed.
  Status set(const Property& property);
  // To remove what is not there is success.
  Status remove(std::string_view space, std::string_view name);
  // Ends the edit, on failure with nothing changed.
  Status commit();

 private:
  friend class State;
  struct Open;
  explicit PropertyEdit(std::unique_ptr<Open> open);
  Error fail(const Error& error);  // ends the edit
  std::unique_ptr<Open> open_;
};

// The properties of what is in one folder, for a listing: read at once when they are few, one by
// one as they are asked for when they are many, so that memory is bounded. Holds no transaction
// between calls. Belongs to one thread and must not outlive its State.
class FolderProperties {
 public:
  // Whether nothing in the folder has any. Then there is no need to ask.
  bool isEmpty() const { return isEmpty_; }
  // Of the entry of this name, in the order of their names.
  Result<std::vector<Property>> of(std::string_view name, const FileIdentity& identity);

 private:
  friend class State;
  struct Content;
  FolderProperties(StateStore& store, std::string folder);
  StateStore* store_;
  std::string folder_;
  bool isEmpty_ = true;
  std::shared_ptr<Content> content_;  // null when there are too many to hold
};

class State {
 public:
  struct Options {
    std::string folder = kStateFolder;
    // Takes one line, without a newline, for the administrator; from any thread.
    std::function<void(const std::string&)> log = {};
    // Of the database, in bytes. Properties may have seven eighths of it.
    std::int64_t greatestSize = 512L * 1024 * 1024;
    // The time of day, for tests; the system's when empty.
    std::function<std::time_t()> now = {};
  };

  // Does nothing yet: the database is opened, and made if there is none, by the first call that
  // needs it. The folder must exist, belong to the process's user and be closed to all others, else
  // every call fails. The administrator's programs become that user before they make a State.
  explicit State(Options options);
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  State(State&&) = delete;
  State& operator=(State&&) = delete;
  ~State();

  // Properties. A file or folder without any, or whose identity does not match, has none.

  // Of one file, in the order of their names.
  Result<std::vector<Property>> properties(const File& file);
  Result<std::optional<std::string>> property(const File& file, std::string_view space,
                                              std::string_view name);
  // Of the entries of the folder of this path. A few microseconds when there are none.
  Result<FolderProperties> propertiesIn(const std::string& folder);
  // Begins to change those of one file.
  Result<PropertyEdit> edit(const File& file);

  // What becomes of state when files change. What cannot be found belongs to nobody, so a killed
  // process leaves each file with its own: tell what will stand where before it does, and what has
  // become of it afterwards. Each takes some microseconds when there is nothing to do.

  // Before `next` replaces `file` at its path (PUT): its properties and locks are then those of
  // both. Also when `file` does not exist: a lock on its name then holds for `next`. False when
  // nothing is known of the path; then there is nothing to settle() either.
  Result<bool> willReplace(const File& file, const FileIdentity& next);
  // Before `to` appears, complete, at its path (COPY): gives it the properties of `from`, and those
  // only. Locks are not copied.
  Status willCopy(const File& from, const File& to);
  // Before what is at `from`, with all below, is renamed to `to` (MOVE within a file system): it
  // then has its properties under both names.
  Status willMove(const std::string& from, const std::string& to);
  // When it was not renamed after all.
  Status didNotMove(const std::string& from, const std::string& to);
  // After any of these: forgets what was known of others at the path of this file. A lock on the
  // name stays.
  Status settle(const File& file);
  // After DELETE, and after MOVE for where it was: forgets all about the path and all below, locks
  // included.
  Status forgetTree(const std::string& path);

  // Locks. Those that are over, or on a file that is no more, do not count.

  // Those that hold for the file: on it and on the folders above it.
  Result<std::vector<Lock>> locks(const File& file);
  // The same and those on anything below it besides, which DELETE or MOVE of a folder must ask for.
  Result<std::vector<Lock>> locksOfTree(const File& file);
  // Those on the entries of a folder itself and no others, for a listing, in the order of names.
  Result<std::vector<Lock>> locksIn(const std::string& folder);
  // Sets a lock: of `lock` token, isExclusive, isInfinite, owner and user count, and the time that
  // it shall hold (0 or less, or more than kLongestLock: kLongestLock). On a path where nothing
  // stands the lock is on the name, until willReplace or bindName gives it a file. Returns the lock
  // as it is kept. Errors: Locked when it does not agree with those that hold for the file or, when
  // infinite, for anything below; TooMuch.
  Result<Lock> addLock(const File& file, const Lock& lock, std::time_t seconds);
  // Lets it hold so long from now. It must hold for the file.
  Result<Lock> refreshLock(const File& file, const std::string& token, std::time_t seconds);
  // Gives a lock on a name to the file that has come to stand there.
  Status bindName(const File& file);
  // Ends one; success when there is none of this token.
  Status removeLock(const std::string& token);
  // Ends those on this path itself, whatever stands there; how many there were.
  Result<int> removeLocksOn(const std::string& path);
  // All that are not over, in the order of paths. With those whose file is gone: they hold again
  // when it comes back.
  Result<std::vector<Lock>> allLocks();
  // Ends those on this path and all below, whatever stands there, for the administrator; how many
  // there were.
  Result<int> removeLocksOfTree(const std::string& path);

 private:
  std::unique_ptr<StateStore> store_;
};

}  // namespace tessel
