// Other programs changing the records at the same time.
#include <string>
#include <vector>

#include "tests/share_records.h"

namespace {

const std::string kFile = kRecordFolder + "/Projects.plist";
const std::string kEntries = nameAndPath("Projects", "/srv/Projects");

TEST(ShareConcurrency, UpdatesLoseNoAttributeOfAnotherProgram) {
  ShareHost host;
  ASSERT_EQ(host.tesselctl({"share", "/srv/Projects"}).status, 0);
  // Another service sets twenty flags of its own, by the common locking rule.
  const Outcome outcome = host.shell(
      "for i in $(seq 20); do tesselctl share /srv/Projects &\nflock " + kRecordLock + R"( sh -c '
      sed "s|^</dict>|<key>flag:$1</key>\n<array><string>1</string></array>\n</dict>|" $0 > $0.new
      mv $0.new $0' )" +
      kFile + " $i &\ndone; wait");
  std::string updated;
  std::string left = host.entries("Projects.plist");
  for (int i = 1; i <= 20; ++i) {
    updated += "Updated existing share point\n";
    const std::string flag = attribute("flag:" + std::to_string(i), {"1"});
    ASSERT_PRED2(contains, left, flag);
    left.erase(left.find(flag), flag.size());
  }
  EXPECT_EQ(outcome.output + outcome.errors, updated);
  EXPECT_EQ(left,
            kEntries + attribute(kWebDAVName, {"Projects"}) + attribute(kWebDAVShared, {"1"}));
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{"Projects.plist"});
}

// A program that holds the lock waits until the command has printed that it has looked the record
// up, and then puts another one there. Its lock is shared, which lets everything pass that does not
// ask for an exclusive one.
TEST(ShareConcurrency, WhatChangesAfterTheLookUpIsKept) {
  struct Case {
    std::string before;
    const char* command;
    const char* printed;
    std::string errors;
  };
  const std::vector<Case> cases{
      {kEntries, "tesselctl unshare Projects", "No other shares",
       red("Cannot delete record: " + kFile +
           " was changed by another program at the same time; try again") +
           "\n"},
      {"", "tesselctl share /srv/Projects", "No existing",
       red("Cannot create new record") + "\n" +
           red("nothing is overwritten at " + kFile + ": another program has made the record") +
           "\n"},
  };
  for (const Case& tried : cases) {
    ShareHost host;
    host.makeFolder(kRecordFolder);
    if (!tried.before.empty()) host.record("Projects.plist", tried.before);
    const std::string theirs = dictionary(kEntries + attribute(kSMBShared, {"1"}));
    host.write("/tmp/theirs", theirs);
    host.write("/tmp/meanwhile",
               std::string(": > /tmp/locked; for i in $(seq 100); do grep -q '^") + tried.printed +
                   "' /tmp/out && break; sleep 0.02; done\n" + "cp /tmp/theirs " + kFile);
    const Outcome outcome =
        host.shell(": > /tmp/out; flock -s " + kRecordLock + " sh /tmp/meanwhile &\n" +
                   "until [ -e /tmp/locked ]; do sleep 0.02; done\n" + tried.command +
                   " > /tmp/out; status=$?; wait; exit $status");
    EXPECT_EQ(outcome.errors, tried.errors);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(host.read(kFile), theirs);
    EXPECT_EQ(host.calls(), "");
  }
}

TEST(ShareConcurrency, TheListingDoesNotWait) {
  ShareHost host;
  host.record("Projects.plist", kEntries);
  const Outcome outcome = host.shell("flock " + kRecordLock + " timeout 5 tesselctl shares");
  EXPECT_EQ(outcome.output, kListingHead + row("Projects", "/srv/Projects", "No"));
}

}  // namespace
