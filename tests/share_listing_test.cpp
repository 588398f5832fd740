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
  for (const char* name : {".plist", ".A.plist", "A", "A.plist~", "A.PLIST", ".tessel-Ab12Cd"}) {
    host.record(name, whole);
  }
  for (const auto& [name, entries] : std::vector<std::pair<std::string, std::string>>{
           {"none", ""},
           {"no name", attribute(kPath, {"/a"})},
           {"no path", attribute(kName, {"A"}) + attribute(kWebDAVShared, {"1"})},
           {"empty name", attribute(kName, {}) + attribute(kPath, {"/a"})},
           {"empty path", attribute(kName, {"A"}) + attribute(kPath, {})}}) {
    host.record(name + ".plist", entries);
  }
  host.makeFolder(kRecordFolder + "/folder.plist");
  host.makeLink(kRecordFolder + "/dangling.plist", "/nowhere");
  host.write(kRecordFolder + "/empty.plist", "");
  host.write(kRecordFolder + "/noise.plist", std::string("bplist00\xFF\0\xFF", 11));
  host.write(kRecordFolder + "/cut off.plist", dictionary(whole).substr(0, 100));
  expectListing(host, kNoShares, "nothing usable");
  host.record("usable.plist", whole);
  expectListing(host, kListingHead + row("A", "/a", "No"), "one usable record among the others");
}

TEST(ShareListing, ShowsRecordsOfEveryHandInByteOrderOfTheirFiles) {
  struct Case {
    std::string file;
    std::string entries;
    std::string row;
  };
  const auto flag = [](const std::string& values) {
    return nameAndPath("flag", "/") + "<key>" + kWebDAVShared + "</key><array>" + values +
           "</array>";
  };
  const std::string yes = row("flag", "/", "Yes");
  const std::string no = row("flag", "/", "No");
  const std::string wide(36, 'n');
  const std::string fits(35, 'p');
  ShareHost host;
  std::string listing = kListingHead;
  for (const Case& tried : std::vector<Case>{
           {"%2F", nameAndPath("/", "/"), row("/", "/", "No")},
           {"%2f", nameAndPath("..", "../.."), row("..", "../..", "No")},
           {"B", attribute(kName, {"a/b", "alias"}) + attribute(kPath, {"/2", "/3"}),
            row("a/b", "/2", "No")},
           {"b", nameAndPath("A", "/1"), row("A", "/1", "No")},
           {"c",
            "<key>" + kName + "</key><string>no array</string><key>" + kPath +
                "</key><string>/4</string><key>" + kWebDAVShared + "</key><string>1</string>",
            row("no array", "/4", "Yes")},
           {"e", nameAndPath("", ""), row("", "", "No")},
           {"f", nameAndPath(fits, fits), row(fits, fits, "No")},
           {"g", nameAndPath(wide, wide), row(wide, wide, "No")},
           {"v1", flag("<string>01</string>"), yes},
           {"v2", flag("<string> \t\n1</string>"), yes},
           {"v3", flag("<string>1</string><string>0</string>"), yes},
           {"v4", flag("<string>0</string><string>1</string>"), no},
           {"v5", flag("<string>4294967297</string>"), no},
           {"v6", flag("<string>yes</string>"), no},
           {"v7", flag(""), no},
       }) {
    host.record(tried.file + ".plist", tried.entries);
    listing += tried.row;
  }
  host.write(kRecordFolder + "/w.plist",
             binaryRecord({{kName, {"binary"}}, {kPath, {"/5"}}, {kWebDAVShared, {"1"}}}));
  host.write("/elsewhere.plist", dictionary(nameAndPath("linked", "/6")));
  host.makeLink(kRecordFolder + "/x.plist", "/elsewhere.plist");
  host.record("\xC3\xA4.plist", nameAndPath("\xC3\xA4", "/caf\xC3\xA9"));
  expectListing(host,
                listing + row("binary", "/5", "Yes") + row("linked", "/6", "No") +
                    row("\xC3\xA4", "/caf\xC3\xA9", "No"),
                "records by other hands");
}

}  // namespace
