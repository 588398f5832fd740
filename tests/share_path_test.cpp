// One table of typed paths: the name comes from the path as typed, the stored path from the
// standardised one.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "platform/files/path.h"
#include "platform/files/standardized_path.h"

namespace {

TEST(SharePath, NameAsTypedAndPathStandardized) {
  const std::vector<std::array<std::string, 3>> cases{
      {"/srv/Projects/", "Projects", "/srv/Projects"},
      {"/srv/././/./Projects", "Projects", "/srv/Projects"},
      {"/srv/Projects/.", ".", "/srv/Projects"},
      {"/srv/Projects/..", "..", "/srv"},
      {"/srv/a/.././../Projects", "Projects", "/Projects"},
      {"/../../srv", "srv", "/srv"},
      {"//", "/", "/"},
      {"/..", "..", "/"},
      {"a//b/./Projects", "Projects", "a/b/Projects"},
      {".//./Projects", "Projects", "./Projects"},
      {".", ".", "."},
      {"/srv/a~b", "a~b", "/srv/a~b"},
      {"~no-such-user-here/Projects", "Projects", "~no-such-user-here/Projects"},
      {"/private/no-such-item-here", "no-such-item-here", "/private/no-such-item-here"},
      {"/privately/tmp", "tmp", "/privately/tmp"},
      {"/private//tmp/../tmp/", "tmp", "/tmp"},
      {"/a/../private/tmp", "tmp", "/tmp"},
      {"/srv/caf\xE9/\x01\n", "\x01\n", "/srv/caf\xE9/\x01\n"},
  };
  for (const auto& [typed, name, path] : cases) {
    EXPECT_EQ(tessel::lastPathComponent(typed), name) << typed;
    EXPECT_EQ(tessel::standardizedPath(typed), path) << typed;
  }
}

}  // namespace
