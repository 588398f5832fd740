// One table of typed paths: the name comes from the path as typed, the stored path from the
// standardised one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/host.h"
#include "platform/path.h"
#include "platform/standardized_path.h"
#include "platform/text.h"

namespace {

struct PathCase {
  const char* typed;
  const char* name;
  const char* path;
};

TEST(SharePath, NameAsTypedAndPathStandardized) {
  const std::vector<PathCase> cases{
      {"/srv/Projects", "Projects", "/srv/Projects"},
      {"/srv/Projects/", "Projects", "/srv/Projects"},
      {"/srv/Projects///", "Projects", "/srv/Projects"},
      {"//srv//Projects", "Projects", "/srv/Projects"},
      {"/srv/./Projects", "Projects", "/srv/Projects"},
      {"/srv/././/./Projects", "Projects", "/srv/Projects"},
      {"/srv/Projects/.", ".", "/srv/Projects"},
      {"/srv/Projects/./", ".", "/srv/Projects"},
      {"/srv/Projects/..", "..", "/srv"},
      {"/srv/a/../Projects", "Projects", "/srv/Projects"},
      {"/srv/a/b/../../Projects", "Projects", "/srv/Projects"},
      {"/srv/a/.././../Projects", "Projects", "/Projects"},
      {"/../../srv", "srv", "/srv"},
      {"/srv/...", "...", "/srv/..."},
      {"/srv/.hidden", ".hidden", "/srv/.hidden"},
      {"/", "/", "/"},
      {"//", "/", "/"},
      {"/.", ".", "/"},
      {"/..", "..", "/"},
      {"Projects", "Projects", "Projects"},
      {"Projects/", "Projects", "Projects"},
      {"a//b/./Projects", "Projects", "a/b/Projects"},
      {"a/../Projects", "Projects", "a/../Projects"},
      {"../Projects/", "Projects", "../Projects"},
      {"./Projects", "Projects", "./Projects"},
      {".//./Projects", "Projects", "./Projects"},
      {".", ".", "."},
      {"./", ".", "."},
      {"..", "..", ".."},
      {"", "", ""},
      {"/srv/~", "~", "/srv/~"},
      {"/srv/a~b", "a~b", "/srv/a~b"},
      {"~no-such-user-here/Projects", "Projects", "~no-such-user-here/Projects"},
      {"/private/no-such-item-here", "no-such-item-here", "/private/no-such-item-here"},
      {"/private", "private", "/private"},
      {"/private/", "private", "/private"},
      {"/privately/tmp", "tmp", "/privately/tmp"},
      {"private/tmp", "tmp", "private/tmp"},
      {"/private/tmp", "tmp", "/tmp"},
      {"/private//tmp/../tmp/", "tmp", "/tmp"},
      {"/a/../private/tmp", "tmp", "/tmp"},
      {"/srv/caf\xE9/\x01\n", "\x01\n", "/srv/caf\xE9/\x01\n"},
  };
  for (const PathCase& tried : cases) {
    EXPECT_EQ(tessel::lastPathComponent(tried.typed), tried.name) << tried.typed;
    EXPECT_EQ(tessel::standardizedPath(tried.typed), tried.path) << tried.typed;
  }
}

TEST(SharePath, TildeIsTheHomeDirectoryOfTheUserDatabase) {
  const auto home = tessel::homeDirectory("");
  if (!home) GTEST_SKIP() << "this user has no home directory";
  setenv("HOME", "/somewhere/else", 1);
  const std::string base = *home == "/" ? "" : *home;
  EXPECT_EQ(tessel::standardizedPath("~"), *home);
  EXPECT_EQ(tessel::standardizedPath("~/"), *home);
  EXPECT_EQ(tessel::standardizedPath("~//a/./b/"), base + "/a/b");
  EXPECT_EQ(tessel::standardizedPath("~root"), tessel::homeDirectory("root"));
  EXPECT_FALSE(tessel::homeDirectory("no-such-user-here"));
}

TEST(SharePath, TextThatAnXMLFileCanHold) {
  for (const char* text :
       {"", "a\tb\r\n", " \x7F", "caf\xC3\xA9", "\xEF\xBF\xBD", "\xF0\x9F\x93\x81"}) {
    EXPECT_TRUE(tessel::isXMLText(text)) << text;
  }
  for (const std::string& text :
       {std::string("\0", 1), std::string("\x01"), std::string("\x1B[31m"), std::string("caf\xE9"),
        std::string("\xEF\xBF\xBE"), std::string("a\xEF\xBF\xBF")}) {
    EXPECT_FALSE(tessel::isXMLText(text)) << text;
  }
}

}  // namespace
