// share and unshare on a host that does not let them: what they say, and what is left.
#include <string>
#include <utility>
#include <vector>

#include "tests/share_records.h"

namespace {

const std::string kFile = kRecordFolder + "/Projects.plist";
const std::string kEntries = nameAndPath("Projects", "/old");

void expectFailure(const Outcome& outcome, const std::string& output,
                   const std::vector<std::string>& messages) {
  std::string errors;
  for (const std::string& message : messages) errors += red(message) + "\n";
  EXPECT_EQ(outcome.output, output);
  EXPECT_EQ(outcome.errors, errors);
  EXPECT_EQ(outcome.status, 1);
}

std::string repeated(const std::string& text, size_t times) {
  std::string whole;
  for (size_t i = 0; i < times; ++i) whole += text;
  return whole;
}

const std::string kNoRecord = "No existing share point named Projects\n";
TEST(ShareFailure, NothingIsOverwrittenThatIsNoRecord) {
  const std::string notAList = kFile + " is no property list with a dictionary as its root ";
  const std::vector<std::pair<void (*)(const ShareHost&), std::string>> cases{
      {[](const ShareHost& host) { host.makeFolder(kFile); },
       "cannot read " + kFile + ": not a regular file"},
      {[](const ShareHost& host) { host.makeLink(kFile, "/nowhere"); },
       "cannot read " + kFile + ": No such file or directory"},
      {[](const ShareHost& host) { host.write(kFile, ""); },
       notAList + "(line 1: no element found)"},
      {[](const ShareHost& host) { host.write(kFile, "<plist><array/></plist>"); },
       notAList + "(its root is of another type)"},
      {[](const ShareHost& host) { host.write(kFile, "someone's notes\n"); },
       notAList + "(line 1: not well-formed (invalid token))"},
      {[](const ShareHost& host) {
         host.record("Projects.plist",
                     "<key>a</key><string>" + std::string(17U << 20U, 'x') + "</string>");
       },
       "cannot read " + kFile + ": larger than 16777216 bytes"},
  };
  for (const auto& [damage, reason] : cases) {
    ShareHost host;
    host.makeFolder(kRecordFolder);
    damage(host);
    const std::string before = host.shell("ls -l --time-style=full-iso " + kRecordFolder).output;
    expectFailure(
        host.tesselctl({"share", "/srv/Projects"}), kNoRecord,
        {"Cannot create new record", "nothing is overwritten at " + kFile + ": " + reason});
    expectFailure(host.tesselctl({"unshare", "Projects"}), "", {"No share point named 'Projects'"});
    EXPECT_EQ(host.shell("ls -l --time-style=full-iso " + kRecordFolder).output, before);
    EXPECT_EQ(host.tesselctl({"shares"}).output, kNoShares);
    EXPECT_EQ(host.calls(), "");
  }
}

TEST(ShareFailure, AFileInTheFoldersPlace) {
  ShareHost host;
  host.write(kRecordFolder, "");
  expectFailure(
      host.tesselctl({"share", "/srv/Projects"}), kNoRecord,
      {"Cannot create new record", "cannot make the folder " + kRecordFolder + ": File exists"});
  expectFailure(host.tesselctl({"unshare", "Projects"}), "", {"No share point named 'Projects'"});
}

TEST(ShareFailure, ARecordIsNeverMadeUnreadable) {
  ShareHost host;
  const std::string refusal = "Cannot set attribute value:cannot write " + kFile + ": ";
  // Five characters become one of many digits.
  const std::string large =
      "<key>r</key><array>" + repeated("<real>1e99</real>", 900'000) + "</array>";
  host.record("Projects.plist", kEntries + large);
  expectFailure(host.tesselctl({"share", "/srv/Projects"}), "",
                {refusal + "the list is too large for XML"});
  EXPECT_EQ(host.read(kFile).size(), dictionary(kEntries + large).size());

  const std::string binary = binaryRecord({{kName, {"Projects"}}, {"Comment", {"a\x01z"}}});
  host.write(kFile, binary);
  expectFailure(host.tesselctl({"share", "/srv/Projects"}), "",
                {refusal + "XML cannot hold its characters"});
  EXPECT_EQ(host.read(kFile), binary);
  host.write(kFile, binaryRecord({{kName, {"Projects"}}, {"Com\rment", {"a\r\nz"}}}));
  EXPECT_EQ(host.tesselctl({"share", "/srv/Projects"}).status, 0);
  EXPECT_NE(host.read(kFile).find("<key>Com&#13;ment</key>\n\t<array>\n\t\t<string>a&#13;\nz</"),
            std::string::npos)
      << host.read(kFile);
}

TEST(ShareFailure, ValuesThatAnExistingRecordCannotTake) {
  ShareHost host;
  host.record("Projects.plist", kEntries);
  host.makeFolder("/srv/caf\xE9/Projects");
  expectFailure(host.tesselctl({"share", "/srv/caf\xE9/Projects"}), "",
                {"Cannot set attribute value:a property list cannot hold the value of " + kPath +
                 ", which is not UTF-8 or has control characters"});
  EXPECT_NE(host.entries("Projects.plist").find(attribute(kPath, {"/old"})), std::string::npos);
}

}  // namespace
