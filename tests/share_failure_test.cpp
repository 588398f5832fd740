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

TEST(ShareFailure, NothingIsOverwrittenThatIsNoRecord) {
  const std::string kept = "nothing is overwritten at " + kFile + ": ";
  const std::string notAList = kept + kFile + " is no property list with a dictionary as its root ";
  const std::string unreadable = kept + "cannot read " + kFile + ": ";
  for (const auto& [damage, reason] : std::vector<std::pair<const char*, std::string>>{
           {"mkdir $f", unreadable + "not a regular file"},
           {"ln -s /nowhere $f", unreadable + "No such file or directory"},
           {": > $f", notAList + "(line 1: no element found)"},
           {"echo '<plist><array/></plist>' > $f", notAList + "(its root is of another type)"},
           {"head -c 17000000 /dev/zero > $f", unreadable + "larger than 16777216 bytes"},
           {"rm -r $d; : > $d", "cannot make the folder " + kRecordFolder + ": File exists"}}) {
    ShareHost host;
    const std::string list = "ls -l --time-style=full-iso " + kRecordFolder;
    const std::string before =
        host.shell("d=" + kRecordFolder + "; f=" + kFile + "; mkdir $d; " + damage + ";" + list)
            .output;
    expectFailure(host.tesselctl({"share", "/srv/Projects"}),
                  "No existing share point named Projects\n", {"Cannot create new record", reason});
    expectFailure(host.tesselctl({"unshare", "Projects"}), "", {"No share point named 'Projects'"});
    EXPECT_EQ(host.shell(list).output, before);
    EXPECT_EQ(host.tesselctl({"shares"}).output, kNoShares);
    EXPECT_EQ(host.calls(), "");
  }
}

TEST(ShareFailure, NothingIsOverwrittenThatCannotBeLookedAt) {
  ShareHost host;
  host.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");  // it cannot be traced as well
  host.record("Projects.plist", kEntries);
  const std::string before = host.read(kFile);
  // By which of these an open file is looked at is the C library's choice.
  const std::string calls = "newfstatat,fstat";
  expectFailure(host.shell("strace -qq -o /tmp/trace -P " + kFile + " -e trace=" + calls +
                           " -e inject=" + calls + ":error=EIO tesselctl share /srv/Projects"),
                "No existing share point named Projects\n",
                {"Cannot create new record", "cannot look at " + kFile + ": Input/output error"});
  EXPECT_EQ(host.read(kFile), before);
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
