// Names of record files: nothing leaves the folder, hides in it or meets another name.
#include "platform/directory/record_name.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using tessel::recordFileName;

TEST(RecordName, EncodesWhatAFileNameCannotHold) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"/", "%2F.plist"},
      {".", "%2E.plist"},
      {"a.b.", "a.b..plist"},
      {"../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd.plist"},
      {"%2F", "%252F.plist"},
      {"a\nb\t", "a%0Ab%09.plist"},
      {std::string("\0\x1F\x20\x7F\x80", 5), "%00%1F %7F\x80.plist"},
      {"caf\xC3\xA9", "caf\xC3\xA9.plist"},
      {"*?[\\]\"'$~:", "*?[\\]\"'$~:.plist"},
  };
  for (const auto& [name, fileName] : cases) {
    EXPECT_EQ(recordFileName(name), fileName);
  }
}

}  // namespace
