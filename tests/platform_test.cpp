// Logic with many cases: text readings, property lists and their bounds, descriptions, paths,
// captured output.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/base/text.h"
#include "platform/files/path.h"
#include "platform/process/process.h"
#include "platform/process/program.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/description.h"
#include "platform/property_list/property_list.h"

namespace tessel {
namespace {

using namespace std::string_literals;

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

TEST(PropertyListValue, IsReadThroughTheGeneralCoercions) {
  struct Coercion {
    const char* value;  // XML
    bool boolean;
    std::int32_t integer;
  };
  const std::vector<Coercion> cases{
      {"<true/>", true, 1},
      {"<integer>-81</integer>", true, -81},
      {"<integer>4294967377</integer>", true, kLargest},
      {"<integer>-9223372036854775808</integer>", true, kSmallest},
      {"<real>-81.9</real>", true, -81},
      {"<real>-0.0</real>", false, 0},
      {"<real>nan</real>", true, 0},
      {"<string>81abc</string>", true, 81},
      {"<string> \t+0081</string>", true, 81},
      {"<string>-2147483649</string>", true, kSmallest},
      {"<string>0x10</string>", false, 0},
      {"<string>yes</string>", true, 0},
      {"<string>  -00Truly</string>", true, 0},
      {"<string>no yes</string>", false, 0},
      {"<array><true/></array>", false, 0},
      {"<data>AQ==</data>", false, 0},
      {"<date>2001-01-01T00:00:01Z</date>", false, 0},
  };
  for (const Coercion& tried : cases) {
    const auto list = PropertyList::parse("<dict><key>k</key>"s + tried.value + "</dict>");
    ASSERT_TRUE(list) << tried.value;
    EXPECT_EQ(list->value("k")->boolean(), tried.boolean) << tried.value;
    EXPECT_EQ(list->value("k")->integer(), tried.integer) << tried.value;
  }
}

// A binary list of these objects, the first of them the root, with offsets and references of one
// byte.
std::string binaryList(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    offsets += static_cast<char>(bytes.size());
    bytes += object;
  }
  const char table = static_cast<char>(bytes.size());
  const char count = static_cast<char>(objects.size());
  return bytes + offsets + "\0\0\0\0\0\0\1\1"s + "\0\0\0\0\0\0\0"s + count + "\0\0\0\0\0\0\0\0"s +
         "\0\0\0\0\0\0\0"s + table;
}

TEST(PropertyList, ReadsBinaryLists) {
  const auto list =
      PropertyList::parse(binaryList({"\xD2\1\2\3\4"s, "Qa", "Qb", "\x10\x51", "\xA1\5", "Qc"}));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->value("a")->integer(), 81);
  EXPECT_EQ(description(list->root()), "{\n    a = 81;\n    b = (\n        c\n    );\n}");
}

// Each object refers to the next one twice: 2 to the power of their number values.
std::string doubling(size_t levels) {
  std::vector<std::string> objects{"\xD1\1\2"s, "Qa"};
  for (size_t i = 0; i < levels; ++i) {
    const char next = static_cast<char>(objects.size() + 1);
    objects.push_back("\xA2"s + next + next);
  }
  objects.emplace_back("Qz");
  return binaryList(objects);
}

TEST(PropertyList, RefusesWhatIsNotExactlyOneBoundedList) {
  const std::vector<std::string> malformed{
      "",
      "<plist><dict><key>a</key><array><true/></array></dict></plist",
      "<dict>",
      "<plist><dict/></plist> x",
      "<plist><dict/><dict/></plist>",
      "<dict><key>a</key></dict>",
      "<dict><key>a</key><key>b</key></dict>",
      "<dict></array>",
      "<dict><!-- </dict>",
      "<dict a=\">\"></dict>",
      "<!DOCTYPE plist [<!ENTITY a \"b\">]><dict/>",
      "<dict><key>a</key><string><b/></string></dict>",
      "<dict><key>a</key><other/></dict>",
      "<array/>",
      "{ a = b; }",
      binaryList({}),
      binaryList({"\xD1\1\1"s, "Qa"}).substr(0, 30),
      binaryList({"\xD1\1\2"s, "Qa", "\xA1\2"s}),                 // an array that holds itself
      binaryList({"\xD1\1\x09"s, "Qa"}),                          // a reference to nothing
      binaryList({"\xDF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}),  // a huge count
      binaryList({"\xD1\1\2"s, "Qa", "\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}),
      doubling(60),
  };
  for (const std::string& bytes : malformed) {
    EXPECT_FALSE(PropertyList::parse(bytes)) << testing::PrintToString(bytes);
  }
  EXPECT_TRUE(PropertyList::parse(doubling(10)));
  EXPECT_TRUE(
      PropertyList::parse("\xEF\xBB\xBF<!-- <dict> --><?x <dict>?><!DOCTYPE plist><plist "
                          "version=\"1.0\"><dict ></dict ></plist>\n<!-- end -->\n"));
}

TEST(Description, IsOldStyleText) {
  const auto list = PropertyList::parse(
      "<dict><key>z</key><true/><key>a b</key><string/><key>B</key><string>/x:1.2_$</string>"
      "<key>q</key><string>\"\\\n\t&#1;é</string><key>data</key><data>AAr/</data>"
      "<key>date</key><date>2150-12-31T23:59:59Z</date><key>real</key><real>0.1</real>"
      "<key>n</key><integer>-5</integer><key>list</key><array><array/><dict/><false/></array>"
      "</dict>");
  ASSERT_TRUE(list);
  EXPECT_EQ(description(list->root()), R"({
    B = /x:1.2_$;
    "a b" = "";
    data = <000aff>;
    date = "2150-12-31 23:59:59 +0000";
    list = (
        (
        ),
        {
        },
        0
    );
    n = "-5";
    q = "\"\\\n\t\001é";
    real = 0.1;
    z = 1;
})");
  EXPECT_EQ(description(*list->value("n")), "-5");
  EXPECT_EQ(description(*list->value("q")), "\"\\\n\t\001é");
}

TEST(Host, TakesTheCountryFromTheLocale) {
  struct Case {
    const char* all;
    const char* lang;
    std::optional<std::string> country;
  };
  for (const auto& [all, lang, country] : std::vector<Case>{{"", "ca_ES@valencia", "ES"},
                                                            {"", "pt_BR", "BR"},
                                                            {"C.UTF-8", "de_DE.UTF-8", {}},
                                                            {"es_419.UTF-8", "", {}},
                                                            {"en_USA", "", {}},
                                                            {"de_", "", {}}}) {
    setenv("LC_ALL", all, 1);
    setenv("LANG", lang, 1);
    EXPECT_EQ(localeCountryCode(), country) << all << lang;
  }
}

TEST(Text, RecognisesUTF8AndWhatAnXMLFileCanHold) {
  for (const std::string& text : {""s, "a\tb\r\n"s, " \x7F"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s,
                                  "\xEF\xBF\xBD"s, "\xF4\x8F\xBF\xBD"s}) {
    EXPECT_TRUE(isUTF8(text) && isXMLText(text)) << testing::PrintToString(text);
  }
  for (const std::string& text : {"\x80"s, "\xC0\x80"s, "\xC3"s, "\xE0\x9F\xBF"s, "\xED\xA0\x80"s,
                                  "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "a\xFFz"s}) {
    EXPECT_FALSE(isUTF8(text) || isXMLText(text)) << testing::PrintToString(text);
  }
  for (const std::string& text : {"\0"s, "\x01"s, "\x1B[31m"s, "\xEF\xBF\xBE"s, "a\xEF\xBF\xBF"s}) {
    EXPECT_TRUE(isUTF8(text) && !isXMLText(text)) << testing::PrintToString(text);
  }
}

TEST(Path, Components) {
  EXPECT_EQ(appendPathComponent("/a/", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendPathExtension("/a/x.conf", "inactive"), "/a/x.conf.inactive");
  for (const auto& [path, parent] :
       std::vector<std::pair<const char*, const char*>>{{"/a/b//", "/a"},
                                                        {"/a", "/"},
                                                        {"a", "."},
                                                        {"///", "/"},
                                                        {"a/b", "a"},
                                                        {"/a//b", "/a"}}) {
    EXPECT_EQ(parentDirectory(path), parent) << path;
  }
}

TEST(Process, CapturesBothStreamsWhileTheChildRuns) {
  const auto output = captureProgram(
      "/bin/sh",
      {"-c", "for i in 1 2; do head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; done"});
  ASSERT_TRUE(output);
  EXPECT_EQ(output->standardOutput.size(), 2'000'000U);
  EXPECT_EQ(output->standardError.size(), 2'000'000U);
}

TEST(Process, ReportsHowAProgramEnded) {
  EXPECT_EQ(*runProgram("/bin/sh", {"-c", "exit 3"}, Streams::Discarded), 3);
  EXPECT_EQ(*runProgram("/bin/sh", {"-c", "kill -9 $$"}, Streams::Discarded), 137);
  const auto missing = runProgram("/no/such/program", {}, Streams::Discarded);
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().description, "cannot run /no/such/program: No such file or directory");
  EXPECT_EQ(captureProgram("/etc/passwd", {}).error().description,
            "cannot run /etc/passwd: Permission denied");
}

TEST(Process, StartsChildrenWithTheUsualSignals) {
  ASSERT_TRUE(prepareProcess());
  EXPECT_EQ(captureProgram("/bin/sh", {"-c", "kill -PIPE $$; echo alive"})->standardOutput, "");
}

TEST(RunBounded, HandsOverItsInputAndNothingElse) {
  using std::chrono::seconds;
  ASSERT_EQ(::setenv("OUTER", "x", 1), 0);
  const std::string script = "cat; printf '[%s]' \"$OUTER\"; echo error >&2; exit 3";
  const auto apart =
      runBounded("/bin/sh", {"-c", script}, {seconds(10), Surroundings::Apart, "in"});
  ASSERT_TRUE(apart) << apart.error().description;
  EXPECT_EQ(apart->status, 3);
  EXPECT_EQ(apart->output.standardOutput, "in[]");
  EXPECT_EQ(apart->output.standardError, "error\n");
  const auto inherited =
      runBounded("/bin/sh", {"-c", script}, {seconds(10), Surroundings::Inherited, ""});
  ASSERT_TRUE(inherited) << inherited.error().description;
  EXPECT_EQ(inherited->output.standardOutput, "[x]");
  EXPECT_FALSE(
      runBounded("/bin/cat", {}, {seconds(10), Surroundings::Apart, std::string(4097, 'x')}));
  EXPECT_FALSE(runBounded("/no/such/program", {}, {seconds(10), Surroundings::Apart, ""}));
}

TEST(RunBounded, EndsWhatTakesTooLongWithAllItsChildren) {
  using std::chrono::milliseconds;
  const auto begin = std::chrono::steady_clock::now();
  const std::string deaf = "trap '' TERM; sleep 60 & echo $! >&2; ";
  const auto slow = runBounded("/bin/sh", {"-c", deaf + "wait"}, {milliseconds(300)});
  ASSERT_FALSE(slow);
  EXPECT_EQ(slow.error().description, "/bin/sh did not end in time and was killed");
  // What it leaves behind holds its streams open, and nobody waits for it.
  const auto quick = runBounded("/bin/sh", {"-c", deaf + "kill -9 $$"}, {milliseconds(30000)});
  ASSERT_TRUE(quick) << quick.error().description;
  EXPECT_EQ(quick->status, 137);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  const int left = std::stoi(quick->output.standardError);
  EXPECT_EQ(::kill(left, SIGKILL), 0);
}

}  // namespace
}  // namespace tessel
