// Names of record files: nothing leaves the folder, hides in it or meets another name.
#include "platform/record_name.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using tessel::isRecordFileName;
using tessel::recordFileName;
using tessel::recordName;

TEST(RecordName, EncodesWhatAFileNameCannotHold) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"Projects", "Projects.plist"},
      {"/", "%2F.plist"},
      {".", "%2E.plist"},
      {"..", "%2E..plist"},
      {"...", "%2E...plist"},
      {".hidden", "%2Ehidden.plist"},
      {"a.b.", "a.b..plist"},
      {"a/b", "a%2Fb.plist"},
      {"../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd.plist"},
      {"50%", "50%25.plist"},
      {"%2F", "%252F.plist"},
      {"a\nb\t", "a%0Ab%09.plist"},
      {std::string("\0\x1F\x20\x7F\x80", 5), "%00%1F %7F\x80.plist"},
      {"caf\xC3\xA9", "caf\xC3\xA9.plist"},
      {"caf\xE9", "caf\xE9.plist"},
      {"a.plist", "a.plist.plist"},
      {" ", " .plist"},
      {"*?[\\]\"'$~:", "*?[\\]\"'$~:.plist"},
  };
  for (const auto& [name, fileName] : cases) {
    EXPECT_EQ(recordFileName(name), fileName);
    EXPECT_TRUE(isRecordFileName(fileName)) << fileName;
    EXPECT_EQ(recordName(fileName), name);
  }
}

TEST(RecordName, WhatNoNameGivesIsNoRecordsName) {
  for (const char* fileName : {"%2f.plist", "%.plist", "%2.plist", "%41.plist", "a%2.plist",
                               "a/b.plist", "a\nb.plist", ".plist", ".a.plist", "a", "%2E.%2E"}) {
    EXPECT_EQ(recordName(fileName), std::nullopt) << fileName;
  }
}

TEST(RecordName, NoTwoNamesShareAFile) {
  // All texts of up to three of the bytes that are treated apart, and some that are not.
  const std::string bytes("./%2EF\0\n\x7F\xC3\xFF", 11);
  std::set<std::string> names{""};
  for (int length = 0; length < 3; ++length) {
    for (const std::string& shorter : std::set<std::string>(names)) {
      for (const char c : bytes) names.insert(shorter + c);
    }
  }
  std::set<std::string> fileNames;
  for (const std::string& name : names) {
    const std::string fileName = recordFileName(name);
    EXPECT_TRUE(fileNames.insert(fileName).second) << fileName;
    EXPECT_EQ(fileName.find('/'), std::string::npos) << fileName;
    EXPECT_EQ(isRecordFileName(fileName), !name.empty()) << fileName;
  }
}

TEST(RecordName, OtherFilesAreNoRecords) {
  for (const char* fileName : {"", ".plist", ".tmp.plist", "a", "a.plist~", "a.PLIST", "plist",
                               "a.plist.swp", ".a.plist.swp", "aplist"}) {
    EXPECT_FALSE(isRecordFileName(fileName)) << fileName;
  }
  for (const char* fileName : {"%2f.plist", "%.plist", "a b.plist", "~.plist"}) {
    EXPECT_TRUE(isRecordFileName(fileName)) << fileName;
  }
}

}  // namespace
