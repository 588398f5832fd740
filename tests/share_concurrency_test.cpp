// Many programs changing the records at once.
#include <string>
#include <vector>

#include "tests/share_records.h"

namespace {

const std::string kFile = kRecordFolder + "/Projects.plist";

// flag NAME ATTRIBUTE: what another file-sharing service does to set a flag of its own in a record
// that exists, by the common locking rule.
const std::string kFlag = "flag() { flock " + kRecordLock + R"( sh -c '
  [ -f "$0" ] || exit 1
  sed "s|^</dict>|<key>$1</key>\n<array>\n<string>1</string>\n</array>\n</dict>|" "$0" > "$0.new"
  mv "$0.new" "$0"' )" + kRecordFolder +
                          R"(/"$1".plist "$2"; }
)";

size_t count(const std::string& text, const std::string& part) {
  size_t found = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST(ShareConcurrency, UpdatesLoseNoAttributeOfAnotherProgram) {
  ShareHost host;
  ASSERT_EQ(host.tesselctl({"share", "/srv/Projects"}).status, 0);
  const Outcome outcome = host.shell(kFlag + R"(
    for i in $(seq 20); do
      { tesselctl share /srv/Projects || echo "share failed"; } &
      { flag Projects flag:$i || echo "flag failed"; } &
    done
    wait)");
  EXPECT_EQ(count(outcome.output, "Updated existing share point\n"), 20U) << outcome.output;
  EXPECT_EQ(count(outcome.output, "failed"), 0U) << outcome.output;
  EXPECT_EQ(outcome.errors, "");
  const std::string left = host.entries("Projects.plist");
  for (int i = 1; i <= 20; ++i) {
    EXPECT_EQ(count(left, attribute("flag:" + std::to_string(i), {"1"})), 1U) << left;
  }
  EXPECT_EQ(count(left, "<key>"), 24U) << left;
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{"Projects.plist"});
}

TEST(ShareConcurrency, DifferentNamesDoNotDisturbEachOther) {
  ShareHost host;
  std::string listing = kListingHead;
  for (char name = 'a'; name < 'a' + 20; ++name) {
    host.makeFolder(std::string("/srv/") + name);
    listing += row({name}, std::string("/srv/") + name, "Yes");
  }
  const auto all = [&host](const std::string& word) {
    return host.shell("for i in a b c d e f g h i j k l m n o p q r s t; do { tesselctl " + word +
                      "/srv/$i > /dev/null || echo $i; } & done; wait");
  };
  EXPECT_EQ(all("share ").output, "");
  EXPECT_EQ(host.tesselctl({"shares"}).output, listing);
  EXPECT_EQ(all("unshare ").output, "");
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
}

TEST(ShareConcurrency, NoRecordThatAnotherServiceHasFlaggedIsDeleted) {
  const std::string race = kFlag + R"(
    for i in 1 2 3 4 5 6 7; do
      tesselctl share /srv/Projects &
      tesselctl unshare Projects &
      tesselctl share /srv/Other/Projects &
      flag Projects )" + kSMBShared +
                           R"( && : > /tmp/flagged &
    done > /dev/null 2>&1
    wait)";
  for (int round = 0; round < 4; ++round) {
    ShareHost host;
    host.record("Projects.plist", "\n" + nameAndPath("Projects", "/srv/Projects") + "\n");
    host.shell(race);
    if (host.exists("/tmp/flagged")) {
      EXPECT_NE(host.entries("Projects.plist").find(attribute(kSMBShared, {"1"})),
                std::string::npos);
    }
    for (const std::string& name : host.recordNames()) EXPECT_EQ(name, "Projects.plist");
    const std::string listing = host.tesselctl({"shares"}).output;
    EXPECT_TRUE(listing == kNoShares || count(listing, "\n") == 4) << listing;
  }
}

// Runs a command that has to wait for the lock while another program holds it. That program waits
// until the command has printed the line, so that it has looked the record up, then makes the
// change. It holds a shared lock, which lets everything pass that does not ask for an exclusive
// one.
Outcome changedMeanwhile(const Sandbox& host, const std::string& command, const std::string& line,
                         const std::string& change) {
  host.write("/tmp/out", "");
  host.write("/tmp/meanwhile", "for i in $(seq 100); do grep -q '^" + line +
                                   "' /tmp/out && break; sleep 0.02; done\n" + change + "\n");
  return host.shell("flock -s " + kRecordLock + " sh -c ': > /tmp/locked; . /tmp/meanwhile' &\n" +
                    "until [ -e /tmp/locked ]; do sleep 0.02; done\n" + command +
                    " > /tmp/out; status=$?; wait; exit $status");
}

TEST(ShareConcurrency, ARecordThatChangesBeforeItsDeletionIsKept) {
  ShareHost host;
  host.record("Projects.plist", nameAndPath("Projects", "/srv/Projects"));
  const std::string flagged =
      nameAndPath("Projects", "/srv/Projects") + attribute(kSMBShared, {"1"});
  host.write("/tmp/flagged", dictionary(flagged));
  const Outcome outcome = changedMeanwhile(host, "tesselctl unshare Projects", "No other shares",
                                           "cp /tmp/flagged " + kFile);
  EXPECT_EQ(outcome.errors, red("Cannot delete record: " + kFile +
                                " was changed by another program at the same time; try again") +
                                "\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(host.read(kFile), dictionary(flagged));
  EXPECT_EQ(host.calls(), "");
}

TEST(ShareConcurrency, ARecordThatAppearsBeforeItsCreationIsKept) {
  ShareHost host;
  host.makeFolder(kRecordFolder);
  const std::string theirs = dictionary(attribute(kSMBShared, {"1"}));
  host.write("/tmp/theirs", theirs);
  const Outcome outcome = changedMeanwhile(host, "tesselctl share /srv/Projects", "No existing",
                                           "cp /tmp/theirs " + kFile);
  EXPECT_EQ(outcome.errors, red("Cannot create new record") + "\n" +
                                red("nothing is overwritten at " + kFile +
                                    ": another program has made the record") +
                                "\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(host.read(kFile), theirs);
  EXPECT_EQ(host.calls(), "");
}

TEST(ShareConcurrency, TheListingDoesNotWait) {
  ShareHost host;
  host.record("Projects.plist", nameAndPath("Projects", "/srv/Projects"));
  const Outcome outcome = host.shell("flock " + kRecordLock + " timeout 5 tesselctl shares");
  EXPECT_EQ(outcome.output, kListingHead + row("Projects", "/srv/Projects", "No"));
}

}  // namespace
