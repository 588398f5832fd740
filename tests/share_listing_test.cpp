// shares: which files are share points, what is read from them, and how they are shown.
#include <string>
#include <utility>
#include <vector>

#include "tests/share_records.h"

namespace {

void expectListing(const Sandbox& host, const std::string& listing, const std::string& why) {
  const Outcome outcome = host.tesselctl({"shares"});
  EXPECT_EQ(outcome.output, listing) << why;
  EXPECT_EQ(outcome.errors, "") << why;
  EXPECT_EQ(outcome.status, 0) << why;
}

TEST(ShareListing, NothingToShowIsNoFailure) {
  ShareHost host;
  expectListing(host, kNoShares, "no folder of records");
  EXPECT_EQ(host.names("/var/lib/directory/local"), std::vector<std::string>{".sharepoints.lock"});
  host.makeFolder(kRecordFolder);
  expectListing(host, kNoShares, "no records");
  host.remove(kRecordFolder);
  host.write(kRecordFolder, "");
  expectListing(host, kNoShares, "a file in the folder's place");
  host.remove("/var/lib/directory/local");
  expectListing(host, kNoShares, "no local node");
  host.remove("/var/lib/directory");
  expectListing(host, kNoShares, "no directory service");
}

TEST(ShareListing, LeavesOutWhatIsNoShare) {
  ShareHost host;
  const std::string whole = nameAndPath("A", "/a");
  for (const char* fileName :
       {".plist", ".A.plist", "A", "A.plist~", "A.PLIST", ".tessel-Ab12Cd"}) {
    host.record(fileName, whole);
  }
  host.makeFolder(kRecordFolder + "/folder.plist");
  host.makeLink(kRecordFolder + "/dangling.plist", "/nowhere");
  host.write(kRecordFolder + "/empty.plist", "");
  host.write(kRecordFolder + "/noise.plist", std::string("bplist00\xFF\0\xFF", 11));
  host.write(kRecordFolder + "/cut off.plist", dictionary(whole).substr(0, 100));
  host.write(kRecordFolder + "/array.plist", "<plist><array/></plist>");
  host.record("no entries.plist", "");
  host.record("no name.plist", attribute(kPath, {"/a"}));
  host.record("no path.plist", attribute(kName, {"A"}) + attribute(kWebDAVShared, {"1"}));
  host.record("empty name.plist", attribute(kName, {}) + attribute(kPath, {"/a"}));
  host.record("empty path.plist", attribute(kName, {"A"}) + attribute(kPath, {}));
  expectListing(host, kNoShares, "nothing usable");
  host.record("usable.plist", whole);
  expectListing(host, kListingHead + row("A", "/a", "No"), "one usable record among the others");
}

TEST(ShareListing, ShowsRecordsOfEveryHandInByteOrderOfTheirFiles) {
  ShareHost host;
  host.record("b.plist", nameAndPath("shown first", "/1"));
  host.record("\xC3\xA4.plist", nameAndPath("\xC3\xA4", "/caf\xC3\xA9"));
  host.record("%2F.plist", nameAndPath("/", "/"));
  host.record("%2f.plist", nameAndPath("..", "../.."));
  host.record("B.plist", attribute(kName, {"a/b", "alias"}) + attribute(kPath, {"/2", "/3"}));
  host.record("c.plist", "<key>" + kName + "</key><string>no array</string><key>" + kPath +
                             "</key><string>/4</string><key>" + kWebDAVShared +
                             "</key><string>1</string>");
  host.write(kRecordFolder + "/d.plist",
             binaryRecord({{kName, {"binary"}}, {kPath, {"/5"}}, {kWebDAVShared, {"1"}}}));
  host.record("e.plist", nameAndPath("", ""));
  host.record("f.plist", nameAndPath(std::string(35, 'n'), std::string(35, 'p')));
  host.record("g.plist", nameAndPath(std::string(36, 'n'), std::string(300, 'p')));
  host.write("/elsewhere.plist", dictionary(nameAndPath("linked", "/6")));
  host.makeLink(kRecordFolder + "/h.plist", "/elsewhere.plist");
  expectListing(host,
                kListingHead + row("/", "/", "No") + row("..", "../..", "No") +
                    row("a/b", "/2", "No") + row("shown first", "/1", "No") +
                    row("no array", "/4", "Yes") + row("binary", "/5", "Yes") + row("", "", "No") +
                    row(std::string(35, 'n'), std::string(35, 'p'), "No") +
                    row(std::string(36, 'n'), std::string(300, 'p'), "No") +
                    row("linked", "/6", "No") + row("\xC3\xA4", "/caf\xC3\xA9", "No"),
                "records by other hands");
}

TEST(ShareListing, ReadsTheFlagLoosely) {
  const std::vector<std::pair<std::string, const char*>> flags{
      {"<string>01</string>", "Yes"},
      {"<string> \t\n1</string>", "Yes"},
      {"<string>1</string><string>0</string>", "Yes"},
      {"<string>0</string><string>1</string>", "No"},
      {"<string>4294967297</string>", "No"},
      {"<string>yes</string>", "No"},
      {"", "No"},
  };
  ShareHost host;
  std::string listing = kListingHead;
  char name = 'A';
  for (const auto& [flag, word] : flags) {
    const std::string text(1, name++);
    host.record(text + ".plist", nameAndPath(text, "/") + "<key>" + kWebDAVShared +
                                     "</key><array>" + flag + "</array>");
    listing += row(text, "/", word);
  }
  expectListing(host, listing, "flags");
}

}  // namespace
