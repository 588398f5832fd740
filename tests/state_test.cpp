// Properties and locks: what belongs to which file, what fits, and what a damaged database does.
#include "host/debian/mod_tessel/state/state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "platform/files/file_descriptor.h"

namespace tessel {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSpace = "urn:test";

// A folder for state and one with files.
class StateTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = fs::temp_directory_path() / "tessel-state-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = fs::canonical(pattern);
    fs::create_directories(folder());
    fs::permissions(folder(), fs::perms::owner_all);
    fs::create_directories(at(""));
    open();
  }
  void TearDown() override {
    state_.reset();
    fs::remove_all(root_);
  }

  std::string folder() const { return root_ + "/state"; }
  std::string database() const { return folder() + "/current/state.db"; }
  std::string at(const std::string& name) const { return root_ + "/share/" + name; }
  std::unique_ptr<State> makeState() {
    return std::make_unique<State>(
        State::Options{folder(), [this](const std::string& line) { log_.push_back(line); },
                       greatestSize_, [this] { return std::time(nullptr) + later_; }});
  }
  void open() { state_ = makeState(); }
  State& state() { return *state_; }

  // What stands there, a file or folder.
  File file(const std::string& name) const {
    const FileDescriptor opened(::open(at(name).c_str(), O_PATH | O_CLOEXEC));
    EXPECT_TRUE(opened) << name;
    return {*pathOf(opened.get()), *identityOf(opened.get()), {}};
  }
  File makeFile(const std::string& name) const {
    std::ofstream(at(name)) << name;
    return file(name);
  }
  File makeFolder(const std::string& name) const {
    fs::create_directory(at(name));
    return file(name);
  }
  File nothing(const std::string& name) const { return {at(name), {}, {}}; }

  Status set(const File& file, const std::string& name, const std::string& value) {
    auto edit = state().edit(file);
    if (!edit) return edit.error();
    if (Status done = edit->set({kSpace, name, value}); !done) return done;
    return edit->commit();
  }
  // "name=value name=value", or what went wrong.
  std::string propertiesOf(const File& file) {
    const auto properties = state().properties(file);
    return properties ? text(*properties) : "error: " + properties.error().description;
  }
  static std::string text(const std::vector<Property>& properties) {
    std::string text;
    for (const Property& property : properties) {
      text += (text.empty() ? "" : " ") + property.name + "=" + property.value;
    }
    return text;
  }

  Result<Lock> lock(const File& file, const std::string& user, bool isExclusive = true,
                    bool isInfinite = false, std::time_t seconds = 600) {
    Lock lock;
    lock.token = *newLockToken();
    lock.isExclusive = isExclusive;
    lock.isInfinite = isInfinite;
    lock.owner = "<D:href>" + user + "</D:href>";
    lock.user = user;
    return state().addLock(file, lock, seconds);
  }
  // The users whose locks hold there, in byte order.
  std::string holders(const Result<std::vector<Lock>>& locks) {
    if (!locks) return "error: " + locks.error().description;
    std::set<std::string> users;
    for (const Lock& lock : *locks) users.insert(lock.user);
    std::string text;
    for (const std::string& user : users) text += (text.empty() ? "" : " ") + user;
    return text;
  }
  std::string holdersOf(const File& file) { return holders(state().locks(file)); }

  // The rows of all tables.
  std::int64_t rows() const {
    sqlite3* opened = nullptr;
    std::int64_t count = -1;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open(database().c_str(), &opened) == SQLITE_OK &&
        sqlite3_prepare_v2(opened,
                           "SELECT (SELECT count(*) FROM file) + (SELECT count(*) FROM place) +"
                           " (SELECT count(*) FROM property) + (SELECT count(*) FROM lock)",
                           -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      count = sqlite3_column_int64(statement, 0);
    }
    sqlite3_finalize(statement);
    sqlite3_close(opened);
    return count;
  }
  void runSQL(const std::string& sql) const {
    sqlite3* opened = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &opened), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(opened, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(opened);
    sqlite3_close(opened);
  }
  std::vector<std::string> setAside() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder())) {
      if (entry.path().filename().string().starts_with("set-aside-")) found.push_back(entry.path());
    }
    return found;
  }

  std::string root_;
  std::unique_ptr<State> state_;
  std::vector<std::string> log_;
  std::time_t later_ = 0;
  std::int64_t greatestSize_ = 512L * 1024 * 1024;
};

StateError kind(const Status& status) { return kindOf(status.error()); }

TEST_F(StateTest, PropertiesAreSetAllOrNone) {
  const File a = makeFile("a");
  {
    auto edit = *state().edit(a);
    EXPECT_TRUE(edit.set({kSpace, "x", "1"}));
    EXPECT_TRUE(edit.set({"", "y", std::string("2\0\xff", 3)}));
    EXPECT_EQ(**edit.value(kSpace, "x"), "1");
    EXPECT_EQ(propertiesOf(a), "");
    EXPECT_TRUE(edit.commit());
  }
  EXPECT_EQ(propertiesOf(a), std::string("y=2\0\xff x=1", 9));
  {
    auto edit = *state().edit(a);
    EXPECT_TRUE(edit.set({kSpace, "x", "3"}));
    EXPECT_TRUE(edit.remove("", "y"));
    EXPECT_TRUE(edit.remove("", "none"));
    EXPECT_FALSE(*edit.value("", "y"));
  }
  EXPECT_EQ(**state().property(a, kSpace, "x"), "1");
  EXPECT_FALSE(*state().property(a, "", "x"));

  open();
  EXPECT_EQ(**state().property(a, kSpace, "x"), "1");
  auto edit = *state().edit(a);
  EXPECT_TRUE(edit.remove(kSpace, "x"));
  EXPECT_TRUE(edit.remove("", "y"));
  EXPECT_TRUE(edit.commit());
  EXPECT_FALSE(edit.set({kSpace, "x", "4"}));
  EXPECT_EQ(rows(), 0);
  EXPECT_FALSE(state().edit(nothing("b")));
}

TEST_F(StateTest, WhatIsTooMuchChangesNothing) {
  const File a = makeFile("a");
  const std::string big(kMostValueBytes, 'v');
  EXPECT_TRUE(set(a, "big", big));
  EXPECT_EQ(kind(set(a, "big", big + "v")), StateError::TooMuch);
  EXPECT_EQ(kind(set(a, std::string(kMostNameBytes, 'n'), "")), StateError::TooMuch);
  EXPECT_EQ(**state().property(a, kSpace, "big"), big);

  int count = 1;
  while (set(a, "big" + std::to_string(count), big)) ++count;
  EXPECT_EQ(count, 15);
  // The same again is no more than before.
  EXPECT_TRUE(set(a, "big3", std::string(kMostValueBytes, 'w')));

  const File b = makeFile("b");
  auto edit = *state().edit(b);
  for (std::size_t i = 0; i < kMostProperties; ++i) {
    ASSERT_TRUE(edit.set({kSpace, std::to_string(i), ""}));
  }
  EXPECT_EQ(kind(edit.set({kSpace, "one more", ""})), StateError::TooMuch);
  EXPECT_TRUE(edit.set({kSpace, "1", "again"}));
  EXPECT_TRUE(edit.commit());
  EXPECT_EQ(state().properties(b)->size(), kMostProperties);
}

TEST_F(StateTest, BelongsToTheFileThatItWasSetOn) {
  File a = makeFile("a");
  ASSERT_TRUE(set(a, "x", "1"));
  ASSERT_TRUE(lock(a, "ann"));
  // Another file of the same number, as file systems give it again and again.
  File again = a;
  ++again.identity.birth;
  EXPECT_EQ(propertiesOf(again), "");
  EXPECT_EQ(holdersOf(again), "");
  // Moved away by a local user, and another in its place.
  fs::rename(at("a"), at("b"));
  EXPECT_EQ(propertiesOf(file("b")), "");
  EXPECT_EQ(propertiesOf(makeFile("a")), "");
  EXPECT_EQ(holdersOf(file("a")), "");
  EXPECT_TRUE(state().allLocks()->front().isGone);
  EXPECT_TRUE(lock(file("a"), "bob"));
  EXPECT_EQ(holdersOf(file("a")), "bob");
  fs::rename(at("b"), at("a"));
  EXPECT_EQ(propertiesOf(file("a")), "");
}

TEST_F(StateTest, FollowsChangesOfFiles) {
  // Each: the change, and what then is known under which name.
  File a = makeFile("a");
  ASSERT_TRUE(set(a, "x", "1"));
  ASSERT_TRUE(lock(a, "ann"));

  // Replaced, as by PUT; a process that is killed before or after the renaming costs nothing.
  File next = makeFile("next");
  ASSERT_TRUE(state().willReplace(a, next.identity));
  EXPECT_EQ(propertiesOf(a), "x=1");
  fs::rename(at("next"), at("a"));
  a = file("a");
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_EQ(holdersOf(a), "ann");
  ASSERT_TRUE(state().settle(a));
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_EQ(holdersOf(a), "ann");
  EXPECT_EQ(rows(), 4);

  // Replaced twice at the same time.
  File one = makeFile("one");
  File two = makeFile("two");
  ASSERT_TRUE(state().willReplace(a, one.identity));
  ASSERT_TRUE(state().willReplace(a, two.identity));
  fs::rename(at("one"), at("a"));
  ASSERT_TRUE(state().settle(file("a")));
  fs::rename(at("two"), at("a"));
  ASSERT_TRUE(state().settle(file("a")));
  a = file("a");
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_EQ(rows(), 4);

  // Copied, without its locks, over one that has properties of its own.
  File b = makeFile("b");
  ASSERT_TRUE(set(b, "y", "2"));
  File copy = makeFile("copy");
  ASSERT_TRUE(state().willCopy(a, {at("b"), copy.identity, {}}));
  EXPECT_EQ(propertiesOf(b), "y=2");
  fs::rename(at("copy"), at("b"));
  b = file("b");
  ASSERT_TRUE(state().settle(b));
  EXPECT_EQ(propertiesOf(b), "x=1");
  EXPECT_EQ(holdersOf(b), "");
  ASSERT_TRUE(set(b, "x", "3"));
  EXPECT_EQ(propertiesOf(a), "x=1");

  // Moved.
  ASSERT_TRUE(state().willMove(at("a"), at("c")));
  EXPECT_EQ(propertiesOf(a), "x=1");
  fs::rename(at("a"), at("c"));
  EXPECT_EQ(propertiesOf(file("c")), "x=1");
  ASSERT_TRUE(state().forgetTree(at("a")));
  ASSERT_TRUE(state().settle(file("c")));
  EXPECT_EQ(propertiesOf(file("c")), "x=1");
  EXPECT_EQ(holdersOf(file("c")), "");

  // Not moved after all.
  ASSERT_TRUE(state().willMove(at("c"), at("d")));
  ASSERT_TRUE(state().didNotMove(at("c"), at("d")));
  EXPECT_EQ(propertiesOf(file("c")), "x=1");
  fs::rename(at("c"), at("d"));
  EXPECT_EQ(propertiesOf(file("d")), "");

  for (const char* name : {"b", "c", "d"}) ASSERT_TRUE(state().forgetTree(at(name)));
  EXPECT_EQ(rows(), 0);
}

TEST_F(StateTest, TreesAreMovedAndForgottenWhole) {
  makeFolder("t");
  makeFolder("t/u");
  // Neighbours in the order of bytes, which belong to no tree of "t".
  const std::vector<std::string> names = {"t", "t/u", "t/u/v", "t.x", "t0", "tt"};
  for (const std::string& name : names) {
    ASSERT_TRUE(set(fs::exists(at(name)) ? file(name) : makeFile(name), "x", name));
  }
  const std::string odd = "t/\xff'%_ \n";
  ASSERT_TRUE(set(makeFile(odd), "x", "odd"));

  ASSERT_TRUE(state().willMove(at("t"), at("w")));
  fs::rename(at("t"), at("w"));
  ASSERT_TRUE(state().forgetTree(at("t")));
  EXPECT_EQ(propertiesOf(file("w")), "x=t");
  EXPECT_EQ(propertiesOf(file("w/u/v")), "x=t/u/v");
  EXPECT_EQ(propertiesOf(file("w" + odd.substr(1))), "x=odd");
  for (const char* name : {"t.x", "t0", "tt"}) {
    EXPECT_EQ(propertiesOf(file(name)), std::string("x=") + name);
  }
  ASSERT_TRUE(state().forgetTree(at("w")));
  EXPECT_EQ(propertiesOf(file("w/u")), "");
  EXPECT_FALSE(state().forgetTree(""));
  EXPECT_FALSE(lock(File{}, "ann"));
  EXPECT_EQ(propertiesOf(file("tt")), "x=tt");
  ASSERT_TRUE(state().forgetTree("/"));
  EXPECT_EQ(rows(), 0);
}

TEST_F(StateTest, ListsAFolder) {
  const File folder = makeFolder("f");
  EXPECT_TRUE(state().propertiesIn(folder.path)->isEmpty());
  ASSERT_TRUE(set(folder, "own", "1"));
  EXPECT_TRUE(state().propertiesIn(folder.path)->isEmpty());
  for (int i = 0; i < 300; ++i) {
    const std::string name = std::to_string(i);
    const File child = makeFile("f/" + name);
    if (i % 2 == 0) {
      ASSERT_TRUE(set(child, "n", name));
    }
  }
  for (const bool isLong : {false, true}) {
    if (isLong) {
      // More than is held at once.
      for (int i = 0; i < 300; i += 2) {
        ASSERT_TRUE(set(file("f/" + std::to_string(i)), "long", std::string(60'000, 'v')));
      }
    }
    auto listed = *state().propertiesIn(folder.path);
    EXPECT_FALSE(listed.isEmpty());
    for (int i = 0; i < 300; ++i) {
      const std::string name = std::to_string(i);
      const auto found = listed.of(name, file("f/" + name).identity);
      ASSERT_TRUE(found);
      ASSERT_EQ(found->size(), i % 2 == 1 ? 0U : isLong ? 2U : 1U) << name;
      if (i % 2 == 0) {
        EXPECT_EQ(found->back().value, name);
      }
    }
    EXPECT_TRUE(listed.of("0", file("f/1").identity)->empty());
  }
}

TEST_F(StateTest, ForgetsWhatHasBeenGoneForLong) {
  constexpr std::time_t kDay = 24L * 3600;
  const int count = 20;
  for (int i = 0; i < count; ++i) ASSERT_TRUE(set(makeFile(std::to_string(i)), "x", "1"));
  makeFolder("t");
  ASSERT_TRUE(set(makeFile("t/u"), "x", "1"));
  const File busy = makeFile("busy");
  const auto work = [&] {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(set(busy, "x", std::to_string(i)));
  };
  fs::remove(at("1"));
  fs::rename(at("2"), at("away"));
  fs::rename(at("3"), at("4"));
  fs::remove_all(at("t"));
  work();
  EXPECT_EQ(rows(), 3 * (count + 2));
  later_ = 20 * kDay;
  fs::rename(at("away"), at("2"));
  work();
  EXPECT_EQ(rows(), 3 * (count + 2));
  // Gone again, but not for so long.
  fs::rename(at("2"), at("away"));
  work();
  later_ = 40 * kDay;
  work();
  EXPECT_EQ(rows(), 3 * (count + 2 - 4));
  fs::rename(at("away"), at("2"));
  EXPECT_EQ(propertiesOf(file("2")), "x=1");
}

TEST_F(StateTest, PropertiesLeaveRoomForLocks) {
  greatestSize_ = 2L * 1024 * 1024;
  open();
  const std::string big(kMostValueBytes, 'v');
  Status last;
  int count = 0;
  while (last && count < 100) last = set(makeFile(std::to_string(++count)), "x", big);
  EXPECT_EQ(kind(last), StateError::Full);
  EXPECT_GT(count, 20);
  for (int i = 1; i <= count; ++i) ASSERT_TRUE(lock(file(std::to_string(i)), "ann")) << i;
  ASSERT_TRUE(state().forgetTree(at("1")));
  ASSERT_TRUE(state().forgetTree(at("2")));
  EXPECT_TRUE(set(file(std::to_string(count)), "x", big));
}

TEST_F(StateTest, LocksHoldForWhatTheyCover) {
  const File top = makeFolder("t");
  const File folder = makeFolder("t/u");
  const File deep = makeFile("t/u/v");
  const File neighbour = makeFile("t/uu");
  ASSERT_TRUE(lock(folder, "ann", false, true));
  ASSERT_TRUE(lock(top, "bob"));  // not what is below
  ASSERT_TRUE(lock(nothing("t/u/new"), "cy", false));

  EXPECT_EQ(holdersOf(deep), "ann");
  EXPECT_EQ(holdersOf(folder), "ann");
  EXPECT_EQ(holdersOf(top), "bob");
  EXPECT_EQ(holdersOf(neighbour), "");
  EXPECT_EQ(holdersOf(nothing("t/u/other")), "ann");
  EXPECT_EQ(holdersOf(nothing("t/u/new")), "ann cy");
  EXPECT_EQ(holders(state().locksOfTree(top)), "ann bob cy");
  EXPECT_EQ(holders(state().locksOfTree(folder)), "ann cy");
  EXPECT_EQ(holders(state().locksIn(top.path)), "ann");
  EXPECT_EQ(holders(state().locksIn(folder.path)), "cy");
  EXPECT_EQ(holders(state().allLocks()), "ann bob cy");

  // By a link from elsewhere, whoever locked where the link is.
  const File outside = makeFile("outside");
  File linked = outside;
  linked.linkedPath = at("t/u/link");
  EXPECT_EQ(holdersOf(linked), "ann");
  EXPECT_EQ(holdersOf(outside), "");

  const auto all = state().allLocks();
  for (const Lock& one : *all) {
    if (one.user == "ann") {
      EXPECT_TRUE(covers(one, deep));
      EXPECT_TRUE(covers(one, linked));
      EXPECT_FALSE(covers(one, neighbour));
    } else if (one.user == "bob") {
      EXPECT_TRUE(covers(one, top));
      EXPECT_FALSE(covers(one, folder));
    }
  }

  // Renamed with all that it covers by a local user, the folder is another under its new name.
  fs::rename(at("t/u"), at("t/w"));
  EXPECT_EQ(holdersOf(file("t/w/v")), "");
  makeFolder("t/u");
  EXPECT_EQ(holdersOf(makeFile("t/u/v")), "");
  EXPECT_EQ(holdersOf(nothing("t/u/new")), "cy");
}

TEST_F(StateTest, LocksGetInEachOthersWay) {
  makeFolder("t");
  struct Case {
    const char* description;
    const char* first;  // file, then x exclusive or s shared, then i infinite
    const char* second;
    bool isGranted;
  };
  // t a folder, t/a a file in it, t/none nothing
  const std::vector<Case> cases = {
      {"exclusive twice", "t/a x", "t/a x", false},
      {"shared twice", "t/a s", "t/a s", true},
      {"shared, then exclusive", "t/a s", "t/a x", false},
      {"exclusive, then shared", "t/a x", "t/a s", false},
      {"below an infinite one", "t xi", "t/a s", false},
      {"below a shared infinite one", "t si", "t/a s", true},
      {"below one that is not infinite", "t x", "t/a x", true},
      {"above", "t/a x", "t xi", false},
      {"above, shared", "t/a s", "t si", true},
      {"above, not infinite", "t/a x", "t x", true},
      {"a name twice", "t/none x", "t/none s", false},
      {"a name below", "t xi", "t/none x", false},
      {"above a name", "t/none x", "t si", false},
  };
  const auto grant = [&](const std::string& what, const std::string& user) {
    const std::string name = what.substr(0, what.find(' '));
    const std::string kind = what.substr(what.find(' '));
    const File on = name == "t/none" ? nothing(name) : file(name);
    return lock(on, user, kind.find('x') != std::string::npos, kind.find('i') != std::string::npos);
  };
  makeFile("t/a");
  for (const Case& one : cases) {
    SCOPED_TRACE(one.description);
    ASSERT_TRUE(grant(one.first, "ann"));
    const auto second = grant(one.second, "bob");
    EXPECT_EQ(bool(second), one.isGranted);
    if (!second) {
      EXPECT_EQ(kindOf(second.error()), StateError::Locked);
    }
    EXPECT_EQ(*state().removeLocksOfTree(at("t")), one.isGranted ? 2 : 1);
    EXPECT_EQ(rows(), 0);
  }
}

TEST_F(StateTest, LocksEnd) {
  const File a = makeFile("a");
  const auto first = lock(a, "ann", true, false, 60);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->expires - first->created, 60);
  later_ = 59;
  EXPECT_EQ(holdersOf(a), "ann");
  EXPECT_FALSE(lock(a, "bob"));
  ASSERT_TRUE(state().refreshLock(a, first->token, 100));
  later_ = 158;
  open();
  EXPECT_EQ(holdersOf(a), "ann");
  later_ = 159;
  EXPECT_EQ(holdersOf(a), "");
  EXPECT_TRUE(state().allLocks()->empty());
  EXPECT_EQ(kindOf(state().refreshLock(a, first->token, 100).error()), StateError::NoSuchLock);
  // Infinite and missing are an hour, and so is what is longer.
  for (const std::time_t seconds : {std::time_t{-1}, std::time_t{0}, std::time_t{1'000'000'000}}) {
    const auto lasting = lock(a, "bob", true, false, seconds);
    ASSERT_TRUE(lasting);
    EXPECT_EQ(lasting->expires - lasting->created, kLongestLock);
    const auto again = state().refreshLock(a, lasting->token, seconds);
    ASSERT_TRUE(again);
    EXPECT_LE(again->expires - lasting->created, kLongestLock + 2);
    EXPECT_FALSE(state().refreshLock(makeFile("b"), lasting->token, 60));
    ASSERT_TRUE(state().removeLock(lasting->token));
    ASSERT_TRUE(state().removeLock(lasting->token));
  }
  EXPECT_EQ(rows(), 0);
  // Set back by years, the clock keeps nobody out for years.
  ASSERT_TRUE(lock(a, "cy"));
  later_ = -100'000'000;
  EXPECT_EQ(holdersOf(a), "");
  EXPECT_TRUE(lock(a, "ann"));
}

TEST_F(StateTest, LockOnANameBecomesTheFiles) {
  const File name = nothing("a");
  const auto made = lock(name, "ann");
  ASSERT_TRUE(made);
  EXPECT_TRUE(made->isOnName);
  EXPECT_EQ(holdersOf(name), "ann");
  // Whatever comes to stand there, until it is bound.
  const File next = makeFile("next");
  ASSERT_TRUE(state().willReplace(name, next.identity));
  fs::rename(at("next"), at("a"));
  const File a = file("a");
  EXPECT_EQ(holdersOf(a), "ann");
  EXPECT_EQ(state().locks(a)->size(), 1U);
  ASSERT_TRUE(state().settle(a));
  ASSERT_EQ(holdersOf(a), "ann");
  EXPECT_FALSE(state().locks(a)->front().isOnName);
  EXPECT_EQ(*state().removeLocksOn(a.path), 1);

  // A folder made there.
  ASSERT_TRUE(lock(nothing("b"), "bob"));
  const File b = makeFolder("b");
  ASSERT_TRUE(set(b, "x", "1"));
  ASSERT_TRUE(state().bindName(b));
  ASSERT_EQ(holdersOf(b), "bob");
  EXPECT_FALSE(state().locks(b)->front().isOnName);
  later_ = kLongestLock;
  EXPECT_EQ(*state().removeLocksOn(b.path), 0);
  later_ = 0;
  ASSERT_TRUE(lock(b, "bob"));
  fs::remove(at("b"));
  EXPECT_TRUE(state().allLocks()->front().isGone);
  EXPECT_EQ(*state().removeLocksOn(b.path), 1);
  EXPECT_TRUE(state().allLocks()->empty());
}

TEST_F(StateTest, LocksAreBounded) {
  const File a = makeFile("a");
  for (std::size_t i = 0; i < kMostFileLocks; ++i) {
    ASSERT_TRUE(lock(a, "ann", false));
  }
  EXPECT_EQ(kindOf(lock(a, "bob", false).error()), StateError::TooMuch);

  Lock big;
  big.user = "bob";
  int count = 0;
  const auto grant = [&](std::size_t ownerBytes) {
    big.token = *newLockToken();
    big.owner = std::string(ownerBytes, 'o');
    return state().addLock(nothing("n" + std::to_string(count++)), big, 600);
  };
  EXPECT_EQ(kindOf(grant(kMostOwnerBytes + 1).error()), StateError::TooMuch);
  for (std::size_t sum = 0; sum < kMostUserOwnerBytes; sum += kMostOwnerBytes) {
    ASSERT_TRUE(grant(kMostOwnerBytes));
  }
  EXPECT_EQ(kindOf(grant(1).error()), StateError::TooMuch);
  big.user = "cy";
  for (std::size_t i = 0; i < kMostUserLocks; ++i) ASSERT_TRUE(grant(10));
  EXPECT_EQ(kindOf(grant(10).error()), StateError::TooMuch);
  // Those that are over make room.
  later_ = 700;
  EXPECT_TRUE(grant(10));

  for (const char* token :
       {"", "x", "'; DROP TABLE lock; --", "6BA7B810-9DAD-11D1-80B4-00C04FD430C8"}) {
    big.token = token;
    EXPECT_FALSE(state().addLock(a, big, 60)) << token;
  }
}

// What stands where the database should be, and whether it is set aside for a fresh one.
TEST_F(StateTest, SetsAsideWhatIsNoDatabase) {
  const File a = makeFile("a");
  const auto overwrite = [&](long offset, const std::string& bytes) {
    std::fstream(database(), std::ios::in | std::ios::out | std::ios::binary).seekp(offset)
        << bytes;
  };
  struct Case {
    const char* description;
    std::function<void()> damage;
  };
  const std::vector<Case> cases = {
      {"text", [&] { std::ofstream(database()) << "no database at all, but long enough for one"; }},
      {"cut", [&] { fs::resize_file(database(), 5000); }},
      {"pages", [&] { overwrite(4096, std::string(20'000, '\x5a')); }},
      {"newer", [&] { runSQL("PRAGMA user_version = 2"); }},
      {"other program", [&] { runSQL("PRAGMA application_id = 1"); }},
      {"missing table", [&] { runSQL("DROP TABLE lock"); }},
      {"view without end",
       [&] {
         runSQL(
             "DROP TABLE property; CREATE VIEW property AS WITH RECURSIVE c(x) AS (SELECT 1"
             " UNION ALL SELECT x + 1 FROM c) SELECT x file, x space, x name, x value FROM c");
       }},
      {"pipe", [&] { fs::remove(database()), ::mkfifo(database().c_str(), 0600); }},
      {"pipe as log",
       [&] {
         for (const char* suffix : {"-wal", "-shm"}) fs::remove(database() + suffix);
         ::mkfifo((database() + "-wal").c_str(), 0600);
       }},
      {"link", [&] { fs::remove(database()), fs::create_symlink(at("a"), database()); }},
      {"folder", [&] { fs::remove(database()), fs::create_directory(database()); }},
      {"file as folder",
       [&] { fs::remove_all(folder() + "/current"), std::ofstream(folder() + "/current") << "x"; }},
  };
  std::size_t count = 0;
  for (const Case& one : cases) {
    SCOPED_TRACE(one.description);
    ASSERT_TRUE(set(a, "x", one.description));
    runSQL("PRAGMA wal_checkpoint(TRUNCATE)");
    state_.reset();
    one.damage();
    open();
    log_.clear();
    EXPECT_EQ(propertiesOf(a), "");
    EXPECT_TRUE(set(a, "y", "1"));
    EXPECT_EQ(propertiesOf(a), "y=1");
    EXPECT_EQ(setAside().size(), ++count);
    ASSERT_EQ(log_.size(), 1U);
    EXPECT_NE(log_.front().find(folder() + "/set-aside-"), std::string::npos) << log_.front();
    ASSERT_TRUE(state().forgetTree(a.path));
  }
  struct stat status {};
  for (const char* name : {"", "-wal", "-shm"}) {
    ASSERT_EQ(::stat((database() + name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << name;
  }
}

// Damage while several processes have it open: whoever finds it sets it aside once, all go on.
TEST_F(StateTest, SetsAsideWhileServing) {
  const File a = makeFile("a");
  ASSERT_TRUE(set(a, "x", "1"));
  const auto other = makeState();
  ASSERT_EQ(other->properties(a)->size(), 1U);
  runSQL("PRAGMA wal_checkpoint(TRUNCATE)");
  // Not what is in memory already, but the next thing that changes the database.
  fs::resize_file(database(), 8192);
  runSQL(
      "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET rootpage = 900 WHERE name = 'lock'");
  EXPECT_TRUE(lock(a, "ann"));
  EXPECT_EQ(setAside().size(), 1U);
  EXPECT_EQ(other->locks(a)->size(), 1U);
  EXPECT_TRUE(other->properties(a)->empty());
  EXPECT_EQ(setAside().size(), 1U);
  EXPECT_EQ(log_.size(), 1U);
}

TEST_F(StateTest, TrustsNoFolderThatOthersMayUse) {
  const File a = makeFile("a");
  const auto fails = [&] {
    const auto found = state().properties(a);
    return !found && kindOf(found.error()) == StateError::Failed;
  };
  for (const unsigned mode : {0750U, 0705U}) {
    ASSERT_EQ(::chmod(folder().c_str(), mode), 0);
    EXPECT_TRUE(fails()) << std::oct << mode;
  }
  ASSERT_EQ(::chmod(folder().c_str(), 0700), 0);
  EXPECT_FALSE(fails());
  open();
  fs::rename(folder(), root_ + "/elsewhere");
  EXPECT_TRUE(fails());
  fs::create_directory_symlink(root_ + "/elsewhere", folder());
  EXPECT_TRUE(fails());
}

TEST_F(StateTest, FullDiskCostsNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can mount a small disk";
  if (::mount("tmpfs", folder().c_str(), "tmpfs", 0, "size=512k,mode=0700") != 0) {
    GTEST_SKIP() << "no mounts here";
  }
  const File a = makeFile("a");
  ASSERT_TRUE(set(a, "x", "1"));
  ASSERT_TRUE(lock(a, "ann"));
  const std::string big(kMostValueBytes, 'v');
  Status last;
  int count = 0;
  while (last && count < 100) last = set(makeFile("b" + std::to_string(count++)), "big", big);
  EXPECT_FALSE(last);
  EXPECT_EQ(kind(last), StateError::Full) << last.error().description;
  {
    // Of many the one that does not fit says so itself.
    auto edit = *state().edit(a);
    int fitting = 0;
    while (fitting < 15 && edit.set({kSpace, std::to_string(fitting), big})) ++fitting;
    EXPECT_LT(fitting, 15);
    EXPECT_FALSE(edit.commit());
  }
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_EQ(holdersOf(a), "ann");
  open();
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_TRUE(setAside().empty());
  state_.reset();
  EXPECT_EQ(::umount(folder().c_str()), 0);
}

TEST_F(StateTest, WaitsAFewSecondsForAnother) {
  const File a = makeFile("a");
  const File b = makeFile("b");
  ASSERT_TRUE(set(a, "x", "1"));
  const auto other = makeState();
  auto edit = *other->edit(a);
  ASSERT_TRUE(edit.set({kSpace, "x", "2"}));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(propertiesOf(a), "x=1");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(kind(set(b, "x", "3")), StateError::Busy);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(kLongestWait + 5));
  ASSERT_TRUE(edit.commit());
  EXPECT_EQ(propertiesOf(a), "x=2");
  EXPECT_TRUE(set(b, "x", "3"));
}

// Runs `function` in a child process, which may be killed.
template <typename Function>
pid_t inChild(Function function) {
  const pid_t child = ::fork();
  if (child == 0) {
    function();
    ::_exit(0);
  }
  return child;
}

// Adds one to the number in a property.
bool countUp(State& state, const File& file) {
  auto edit = state.edit(file);
  if (!edit) return false;
  const auto value = edit->value(kSpace, "n");
  if (!value) return false;
  const int number = *value ? std::stoi(**value) : 0;
  return edit->set({kSpace, "n", std::to_string(number + 1)}) && edit->commit();
}

// Whether who gets the lock has it alone until it is given back, and others are told so.
bool lockAndUnlock(State& state, const File& file) {
  Lock lock;
  lock.token = *newLockToken();
  lock.user = "ann";
  const auto made = state.addLock(file, lock, 60);
  if (!made) return kindOf(made.error()) == StateError::Locked;
  const auto held = state.locks(file);
  const bool isAlone = held && held->size() == 1 && held->front().token == lock.token;
  return state.removeLock(lock.token) && isAlone;
}

// What is remembered of an unchanged database is not taken for true of a changed one.
TEST_F(StateTest, SeesAtOnceWhatAnotherProcessChanges) {
  constexpr int kRounds = 50;
  const File a = makeFile("a");
  std::array<int, 2> commands{};
  std::array<int, 2> answers{};
  ASSERT_EQ(::pipe2(commands.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(answers.data(), O_CLOEXEC), 0);
  const pid_t child = inChild([&] {
    ::close(commands[1]);
    for (char command = 0; ::read(commands[0], &command, 1) == 1;) {
      if (command == 'l' && !lock(a, "bob")) return;
      if (command == 'p' && !set(a, "x", "1")) return;
      if (command == 'f' && !state().forgetTree(a.path)) return;
      if (::write(answers[1], &command, 1) != 1) return;
    }
  });
  ::close(answers[1]);
  const auto other = [&](char command) {
    return ::write(commands[1], &command, 1) == 1 && ::read(answers[0], &command, 1) == 1;
  };
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(holdersOf(a), "");
    ASSERT_FALSE(*state().willReplace(a, a.identity));
    ASSERT_TRUE(other('p'));
    ASSERT_TRUE(*state().willReplace(a, a.identity));
    ASSERT_TRUE(other('l'));
    ASSERT_EQ(holdersOf(a), "bob");
    if (round % 10 == 0) runSQL("PRAGMA wal_checkpoint(RESTART)");
    ASSERT_TRUE(other('f'));
  }
  ::close(commands[1]);
  ::close(answers[0]);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

// Each of many threads in many processes counts up a number of its own and one of all.
TEST_F(StateTest, ManyAtOnce) {
  constexpr int kProcesses = 4;
  constexpr int kThreads = 4;
  constexpr int kRounds = 10;
  const File all = makeFile("all");
  std::vector<File> own;
  for (int i = 0; i < kProcesses * kThreads; ++i) own.push_back(makeFile(std::to_string(i)));
  state_.reset();
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(inChild([&] {
      const auto state = makeState();
      std::atomic<int> failures = 0;
      const auto work = [&](const File& file) {
        for (int round = 0; round < kRounds; ++round) {
          const bool isWell =
              countUp(*state, all) && countUp(*state, file) && lockAndUnlock(*state, all);
          if (!isWell) ++failures;
        }
      };
      std::vector<std::thread> threads;
      for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, own.at(process * kThreads + i));
      for (std::thread& thread : threads) thread.join();
      ::_exit(failures == 0 ? 0 : 1);
    }));
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  open();
  EXPECT_EQ(propertiesOf(all), "n=" + std::to_string(kProcesses * kThreads * kRounds));
  for (const File& file : own) EXPECT_EQ(propertiesOf(file), "n=" + std::to_string(kRounds));
}

constexpr std::array<const char*, 3> kNames = {"one", "three", "two"};
const std::string kFiller(30'000, 'v');  // so that a change has many pages

// Writes each number, when all three properties have it, to the descriptor.
void changeForEver(State& state, const File& file, int number, int output) {
  for (;; ++number) {
    auto edit = state.edit(file);
    if (!edit) return;
    for (const char* name : kNames) {
      if (!edit->set({kSpace, name, std::to_string(number) + " " + kFiller})) return;
    }
    if (!edit->commit() || ::write(output, &number, sizeof number) != sizeof number) return;
    Lock lock;
    lock.token = *newLockToken();
    if (!state.addLock(file, lock, 60) || !state.removeLocksOn(file.path)) return;
  }
}

// A process that is killed somewhere in its changes leaves each of them whole or undone, loses
// nothing that it had been told, and keeps nobody waiting.
TEST_F(StateTest, KilledAnywhere) {
  constexpr int kRounds = 40;
  const File a = makeFile("a");
  int last = 0;
  for (int round = 0; round < kRounds; ++round) {
    state_.reset();
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const pid_t child = inChild([&] { changeForEver(*makeState(), a, last + 1, ends[1]); });
    ::close(ends[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(2'000 + round * 1'700));
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    int answered = last;
    while (::read(ends[0], &answered, sizeof answered) == sizeof answered) {
    }
    ::close(ends[0]);

    const auto start = std::chrono::steady_clock::now();
    open();
    const auto properties = state().properties(a);
    ASSERT_TRUE(properties);
    if (properties->empty()) {
      EXPECT_EQ(answered, 0);
      continue;
    }
    last = std::stoi(properties->front().value);
    EXPECT_GE(last, answered);
    const std::string value = std::to_string(last) + " " + kFiller;
    EXPECT_EQ(text(*properties), "one=" + value + " three=" + value + " two=" + value);
    EXPECT_TRUE(state().removeLocksOn(a.path));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  }
  EXPECT_GT(last, 0);
  EXPECT_TRUE(setAside().empty());
}

TEST(StateFileTest, TellsPathsAndIdentities) {
  EXPECT_EQ(pathInside("/", "a"), "/a");
  EXPECT_EQ(pathInside("/a", "b"), "/a/b");
  std::string folder = fs::temp_directory_path() / "tessel-file-XXXXXX";
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  folder = fs::canonical(folder);
  const std::string path = folder + "/a";
  std::ofstream(path) << "a";
  fs::create_symlink("a", folder + "/link");
  const FileDescriptor opened(::open((folder + "/link").c_str(), O_PATH | O_CLOEXEC));
  EXPECT_EQ(*pathOf(opened.get()), path);
  EXPECT_TRUE(identityOf(opened.get())->isSameFile(*identityAt(path)));
  EXPECT_FALSE(identityOf(opened.get())->isSameFile(*identityAt(folder + "/link")));
  EXPECT_FALSE(identityAt(folder + "/none")->exists());
  EXPECT_FALSE(identityAt(path + "/none")->exists());
  fs::remove(path);
  EXPECT_FALSE(pathOf(opened.get()));
  EXPECT_FALSE(identityOf(-1));
  fs::remove_all(folder);
}

}  // namespace

}  // namespace tessel
