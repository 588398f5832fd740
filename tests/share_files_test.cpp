#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/files/hidden.h"
#include "host/debian/mod_tessel/files/new_file.h"
#include "host/debian/mod_tessel/files/place.h"
#include "host/debian/mod_tessel/files/tree.h"

namespace tessel {
namespace {

// A share in a folder of its own, beside what does not belong to it.
class ShareFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "share-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(pattern.data()));
    top_ = std::filesystem::canonical(pattern);
    make("share/folder/file", "content");
    make("outside/file", "secret");
    share_ = FileDescriptor(::open(path("share").c_str(), O_PATH | O_DIRECTORY));
  }
  void TearDown() override { std::filesystem::remove_all(top_); }

  std::string path(const std::string& name) const { return top_ + "/" + name; }
  void make(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name)) << content;
  }
  void link(const std::string& name, const std::string& target, uid_t owner) const {
    ASSERT_EQ(0, ::symlink(target.c_str(), path(name).c_str()));
    ASSERT_EQ(0, ::lchown(path(name).c_str(), owner, owner));
  }
  std::string content(const std::string& name) const {
    std::ifstream stream(path(name));
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  // All names below a folder, hidden ones included.
  std::vector<std::string> names(const std::string& folder) const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path(folder))) {
      found.push_back(entry.path().lexically_relative(path(folder)));
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  Place placeOf(const std::string& name) const {
    auto found = findBelow(share_, name);
    EXPECT_TRUE(found) << name;
    return found ? std::move(found->target) : Place{};
  }

  std::string top_;
  FileDescriptor share_;
};

TEST_F(ShareFiles, LinksAreJudgedByTheirOwners) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  constexpr uid_t kAnna = 2001;
  constexpr uid_t kBert = 2002;
  make("outside/annas", "Anna's");
  ASSERT_EQ(0, ::chown(path("outside/annas").c_str(), kAnna, kAnna));
  link("share/root-out", "../outside/file", 0);
  link("share/root-absolute", path("outside"), 0);
  link("share/anna-out", "../outside/file", kAnna);
  link("share/anna-own", "../outside/annas", kAnna);
  link("share/bert-annas", "../outside/annas", kBert);
  link("share/bert-by-root", "root-out", kBert);
  link("share/root-by-anna", "anna-own", 0);
  link("share/root-by-bert", "bert-annas", 0);
  link("share/anna-folder", "../outside", kAnna);
  link("share/dangling", "none", 0);
  link("share/loop", "loop", 0);
  link("share/through-proc", "/proc/self/cwd/etc/passwd", kAnna);
  ASSERT_EQ(0, ::mkfifo(path("share/pipe").c_str(), 0666));
  struct Case {
    const char* path;
    int error;  // 0: found
  };
  for (const Case& example : {
           Case{"folder/file", 0},
           Case{"/folder//file", 0},
           Case{"root-out", 0},
           Case{"root-absolute/file", 0},
           Case{"anna-out", EACCES},
           Case{"anna-own", 0},
           Case{"bert-annas", EACCES},
           Case{"bert-by-root", EACCES} /* is not root's */,
           Case{"root-by-anna", 0},
           Case{"root-by-bert", EACCES},
           Case{"anna-folder/file", EACCES},
           Case{"dangling", EACCES},
           Case{"dangling/x", EACCES},
           Case{"loop", ELOOP},
           Case{"through-proc", EACCES},
           Case{"pipe", EACCES},
           Case{"../outside/file", EACCES},
           Case{"folder/../../outside/file", EACCES},
           Case{".DAV/x", ENOENT},
           Case{".tessel-0123456789abcdef/x", ENOENT},
       }) {
    const auto found = findBelow(share_, example.path);
    EXPECT_EQ(example.error, found ? 0 : found.error().code) << example.path;
    EXPECT_TRUE(!found || found->target.exists()) << example.path;
  }
  // On the way to a share only root's own links count.
  link("to-share", "share", 0);
  link("annas-way", "share", kAnna);
  EXPECT_TRUE(openSharedFolder(path("to-share/folder")));
  EXPECT_FALSE(openSharedFolder(path("annas-way/folder")));
  EXPECT_FALSE(openSharedFolder(path("share/folder/file")));
}

TEST_F(ShareFiles, WhatIsMissingIsToldApart) {
  struct Case {
    const char* path;
    bool exists, hasFolder, isBelowFile;
  };
  for (const Case& example :
       {Case{"", true, false, false}, Case{"/", true, false, false},
        Case{"folder/", true, true, false}, Case{"new", false, true, false},
        Case{"new/new", false, false, false}, Case{"folder/file/x", false, false, true},
        Case{"folder/file/", false, false, true}}) {
    const auto found = findBelow(share_, example.path);
    ASSERT_TRUE(found) << example.path;
    EXPECT_EQ(example.exists, found->target.exists()) << example.path;
    EXPECT_EQ(example.hasFolder, found->target.hasFolder()) << example.path;
    EXPECT_EQ(example.isBelowFile, found->isBelowFile) << example.path;
  }
}

TEST_F(ShareFiles, ANewFileIsWholeOrNotThere) {
  const Place folder = placeOf("folder");
  {
    auto file = NewFile::create(folder.item, 0666);
    ASSERT_TRUE(file);
    ASSERT_TRUE(file->write("half"));
    EXPECT_EQ(std::vector<std::string>{"file"}, names("share/folder"));
  }
  EXPECT_EQ(std::vector<std::string>{"file"}, names("share/folder"));
  auto file = NewFile::create(folder.item, 0666);
  ASSERT_TRUE(file);
  ASSERT_TRUE(file->write("new"));
  EXPECT_EQ(EEXIST, file->publish("file", false).error().code);
  EXPECT_EQ("content", content("share/folder/file"));
  EXPECT_TRUE(file->publish("file", true));
  EXPECT_EQ("new", content("share/folder/file"));
  EXPECT_EQ(std::vector<std::string>{"file"}, names("share/folder"));
}

TEST_F(ShareFiles, TreesAreCopiedMovedAndRemovedWhole) {
  make("share/a/b/c", "c");
  make("share/a/d", "d");
  make("share/.DAV", "");
  make("share/a/.DAV/old", "");
  ASSERT_EQ(0, ::symlink("/etc/passwd", path("share/a/link").c_str()));
  const std::vector<std::string> tree{"b", "b/c", "d"};

  std::vector<std::string> told;
  TreeEvents events;
  events.copied = [&told](const std::string& below, const FileIdentity& from,
                          const FileIdentity& made) {
    EXPECT_FALSE(from.isSameFile(made));
    told.push_back(below);
    return Status();
  };
  ASSERT_TRUE(copyItem(placeOf("a"), placeOf("copy"), true, events));
  EXPECT_EQ(tree, names("share/copy"));
  std::sort(told.begin(), told.end());
  EXPECT_EQ((std::vector<std::string>{"", "/b", "/b/c", "/d"}), told);
  // Over what is there, whatever it is.
  ASSERT_TRUE(copyItem(placeOf("copy"), placeOf("folder/file"), true, {}));
  EXPECT_EQ((std::vector<std::string>{"file", "file/b", "file/b/c", "file/d"}),
            names("share/folder"));
  ASSERT_TRUE(moveItem(placeOf("copy/d"), placeOf("folder/file"), {}));
  EXPECT_EQ("d", content("share/folder/file"));
  ASSERT_TRUE(moveItem(placeOf("copy"), placeOf("folder"), {}));
  EXPECT_EQ((std::vector<std::string>{"b", "b/c"}), names("share/folder"));
  EXPECT_FALSE(std::filesystem::exists(path("share/copy")));

  // Who is told and objects keeps everything as it was.
  events.copied = [](const auto&, const auto&, const auto&) -> Status { return Error{"no", 0}; };
  events.willRename = []() -> Status { return Error{"no", 0}; };
  EXPECT_FALSE(copyItem(placeOf("a"), placeOf("folder"), true, events));
  EXPECT_FALSE(moveItem(placeOf("a"), placeOf("folder"), events));
  EXPECT_EQ((std::vector<std::string>{"b", "b/c"}), names("share/folder"));
  EXPECT_EQ((std::vector<std::string>{".DAV", "a", "folder"}), [this] {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path("share"))) {
      found.push_back(entry.path().filename());
    }
    std::sort(found.begin(), found.end());
    return found;
  }());
  ASSERT_TRUE(removeItem(placeOf("a")));
  EXPECT_FALSE(std::filesystem::exists(path("share/a")));
}

TEST_F(ShareFiles, LeftoversOfTheDeadGo) {
  const std::string name = *newHiddenName();
  EXPECT_TRUE(isHiddenName(name));
  EXPECT_FALSE(isHiddenName(name + "0"));
  const auto isThere = [this](const std::string& left) {
    return std::filesystem::exists(path("share/" + left));
  };
  // Any folder that was given the name.
  make("share/" + name + "/content/x", "");
  removeLeftover(share_, name, std::chrono::seconds(0));
  EXPECT_TRUE(isThere(name));
  auto made = HiddenFolder::create(share_);
  ASSERT_TRUE(made);
  std::string left;
  for (const std::string& found : names("share")) {
    if (isHiddenName(found) && found != name) left = found;
  }
  make("share/" + left + "/content/x", "");
  removeLeftover(share_, left, std::chrono::seconds(0));
  EXPECT_TRUE(isThere(left)) << "somebody works on it";
  ASSERT_EQ(0, ::flock(made->descriptor().get(), LOCK_UN));
  removeLeftover(share_, left);
  EXPECT_TRUE(isThere(left)) << "it could still be in the making";
  removeLeftover(share_, left, std::chrono::seconds(0));
  EXPECT_FALSE(isThere(left));
}

}  // namespace
}  // namespace tessel
