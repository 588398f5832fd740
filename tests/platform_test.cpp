// Logic with many cases: text readings, paths, captured output.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/base/text.h"
#include "platform/files/path.h"
#include "platform/process/process.h"
#include "platform/process/program.h"

namespace tessel {
namespace {

using namespace std::string_literals;

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

TEST(Text, ShowsWhatDoesNothingToATerminal) {
  for (const auto& [text, line, word] : std::vector<std::array<std::string, 3>>{
           {"a/b", "a/b", "a/b"},
           {"\u00E4 \u20AC \U0001F600", "\u00E4 \u20AC \U0001F600", "'\u00E4 \u20AC \U0001F600'"},
           {"it's \\", "it's \\x5C", "'it'\\''s \\'"},
           {"\x1B[2J'\x7F", "\\x1B[2J'\\x7F", "$'\\x1B[2J\\'\\x7F'"},
           {"\xC2\x9B", "\\xC2\\x9B", "$'\\xC2\\x9B'"},
           // A mark of direction, closed for the reader of this source.
           {"\xE2\x80\xAE\xE2\x80\xAC\xE4", "\\xE2\\x80\\xAE\\xE2\\x80\\xAC\\xE4",
            "$'\\xE2\\x80\\xAE\\xE2\\x80\\xAC\\xE4'"}}) {
    EXPECT_EQ(shown(text), line);
    EXPECT_EQ(shellWord(text), word);
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
