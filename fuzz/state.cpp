// A database of properties and locks that somebody else may have made: its bytes, or SQL that is
// run on a good one.
#include "host/debian/mod_tessel/state/state.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz/fuzz.h"
#include "fuzz/statements.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/var/lib/state";
constexpr const char* kCurrent = "/var/lib/state/current";
constexpr const char* kPath = "/var/lib/state/current/state.db";
constexpr const char* kSpace = "urn:x";

struct Good {
  File folder;
  File file;
  std::string database;
};
Good* good = nullptr;  // for the life of the process

State::Options options() { return {kFolder, {}, 16L * 1024 * 1024, {}}; }

void removeDatabases() {
  for (const auto& entry : fs::directory_iterator(kFolder)) fs::remove_all(entry.path());
  fs::create_directory(kCurrent);
}

std::string contentOf(const char* path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

Result<Lock> lock(State& state, const File& file) {
  Lock lock;
  lock.token = *newLockToken();
  lock.isExclusive = false;
  lock.user = "ann";
  return state.addLock(file, lock, 600);
}

Status set(State& state, const File& file, const std::string& name) {
  auto edit = state.edit(file);
  if (!edit) return edit.error();
  if (Status done = edit->set({kSpace, name, "value"}); !done) return done;
  return edit->commit();
}

void requireBounded(const Result<std::vector<Property>>& properties) {
  if (!properties) return;
  require(properties->size() <= kMostProperties);
  for (const Property& property : *properties) require(property.value.size() <= kMostValueBytes);
}

void requireBounded(const Result<std::vector<Lock>>& locks) {
  if (!locks) return;
  for (const Lock& one : *locks) {
    require(one.token.size() == 36 && one.owner.size() <= kMostOwnerBytes);
  }
}

void readAll(State& state) {
  for (const File& file : {good->folder, good->file}) {
    requireBounded(state.properties(file));
    requireBounded(state.locksOfTree(file));
  }
  requireBounded(state.allLocks());
  requireBounded(state.locksIn(good->folder.path));
  if (auto listed = state.propertiesIn(good->folder.path)) {
    requireBounded(listed->of("file", good->file.identity));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::usePrivateFolders();
  require(::mkdir(kFolder, 0700) == 0 && ::mkdir("/var/lib/folder", 0700) == 0);
  fuzz::writeFile("/var/lib/folder/file", "x");
  good = new Good;
  good->folder = {"/var/lib/folder", *identityAt("/var/lib/folder"), {}};
  good->file = {"/var/lib/folder/file", *identityAt("/var/lib/folder/file"), {}};
  {
    State state(options());
    for (const File& file : {good->folder, good->file}) {
      require(set(state, file, "a") && set(state, file, "b") && lock(state, file) &&
              lock(state, file));
    }
  }
  fuzz::runStatements(kPath, "VACUUM");
  good->database = contentOf(kPath);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::text(data, size);
  const bool isFile = bytes.starts_with("SQLite format 3");
  removeDatabases();
  fuzz::writeFile(kPath, isFile ? bytes : good->database);
  if (!isFile) {
    fuzz::runStatements(kPath, std::string(bytes));
    if (contentOf(kPath) == good->database) return 0;
  }

  State state(options());
  readAll(state);
  const File& file = good->file;
  const File next{file.path, {1, 2, 3}, {}};
  const File moved{"/var/lib/elsewhere/file", file.identity, {}};
  (void)state.willReplace(file, next.identity);
  (void)state.willCopy(file, moved);
  (void)state.willMove(good->folder.path, "/var/lib/elsewhere");
  (void)state.didNotMove(good->folder.path, "/var/lib/elsewhere");
  (void)state.settle(file);
  (void)state.bindName(file);
  if (set(state, file, "new")) {
    // What was answered holds, unless the next look finds damage and the database is set aside.
    const auto value = state.property(file, kSpace, "new");
    require(!value || !*value || **value == "value");
  }
  if (const auto made = lock(state, file)) {
    const auto locks = state.locks(file);
    (void)state.refreshLock(file, made->token, 60);
    require(!locks || std::all_of(locks->begin(), locks->end(), [](const Lock& one) {
      return one.path == good->file.path || one.isInfinite;
    }));
    (void)state.removeLock(made->token);
  }
  (void)state.removeLocksOn(file.path);
  (void)state.forgetTree("/");
  // Whatever it was, what comes after is served: there are no errors that stay.
  State after(options());
  require(bool(after.properties(file)) || bool(after.properties(file)));
  (void)after.removeLocksOfTree("/");
  require(set(after, file, "last") || set(after, file, "last"));
  return 0;
}
