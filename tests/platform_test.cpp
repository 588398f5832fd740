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
#include "platform/xml/element_check.h"

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

TEST(XML, TellsWhatCanBePutIntoAnyDocument) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<a>";
    for (int i = 0; i < depth; ++i) text += "</a>";
    return text;
  };
  struct Case {
    std::string element;
    bool isFit;
  };
  ElementCheck check;
  for (const auto& [element, isFit] : std::vector<Case>{
           {"<a b='1' xml:lang='de'>t&amp;<c/><!-- - --><?p?><![CDATA[<]]></a>", true},
           {"<p:a xmlns:p='u:' xmlns='v:'><b xmlns='' p:c='' c=''/></p:a>", true},
           {"<xml:a/>", true},
           {"<a xmlns='u:%20\xC3\xA4'>\xC3\xA4</a>", true},
           {"<ns1:a xmlns:ns1=\"u:\">\tb\"c\n</ns1:a>", true},
           {"<a-1._/>", true},
           {"<a>b]]</a>", true},
           {"", false},
           {"<", false},
           {"a", false},
           {"<>", false},
           {"<a", false},
           {"</a>", false},
           {"<a>b", false},
           {"<a></b>", false},
           {"<a></a>b", false},
           {"<a>b]]></a>", false},
           {"<a>\x7F\1</a>", false},
           {"<ns1:a/>", false},
           {"<xml:a xmlns:xml=\"u:\"/>", false},
           {"<ns1:a xmlns:ns2=\"u:\"/>", false},
           {"<ns1:1 xmlns:ns1=\"u:\"/>", false},
           {"<ns1: xmlns:ns1=\"u:\"/>", false},
           {"<ns1:a:b xmlns:ns1=\"u:\"/>", false},
           {"<ns1:a xmlns:ns1=\"\"/>", false},
           {"<ns1:a xmlns:ns1=\"u&v\"/>", false},
           {"<ns1:a xmlns:ns1=\"u<v\"/>", false},
           {"<ns1:a xmlns:ns1=\"u\nv\"/>", false},
           {"<ns1:a xmlns:ns1=\"u:\"b=''/>", false},
           {"<ns1:a xmlns:ns1=\"u:", false},
           {"<ns1:a xmlns:ns1=\"http://www.w3.org/2000/xmlns/\"/>", false},
           {"<a/><a/>", false},
           {"<a>", false},
           {"<?xml version='1.0'?><a/>", false},
           {"<!DOCTYPE a><a/>", false},
           {"<a>&b;</a>", false},
           {"<a>\xE4</a>", false},
           {"<a>\1</a>", false},
           {"<a>\xEF\xBF\xBE</a>", false},
           {"<\0a\0/\0>\0"s, false},
           {"\xFE\xFF\0<\0a\0/\0>"s, false},
           {"<p:a/>", false},
           {"<a p:b=''/>", false},
           {"<XML:a/>", false},
           {"<xmlns:a/>", false},
           {"<p:1 xmlns:p='u:'/>", false},
           {"<p:a:b xmlns:p='u:'/>", false},
           {"<p:a xmlns:p=''/>", false},
           {"<p:a xmlns:p='http://www.w3.org/2000/xmlns/'/>", false},
           {"<a><b xmlns='http://www.w3.org/XML/1998/namespace'/></a>", false},
           {"<a p:b='' q:b='' xmlns:p='u:' xmlns:q='u:'/>", false},
           {"<a xmlns='u v'/>", false},
           {"<a xmlns='u&#10;v'/>", false},
           {"<a xmlns='u}v'/>", false},
           {nested(kDeepestElement), true},
           {nested(kDeepestElement + 1), false},
       }) {
    EXPECT_EQ(check.isForAll(element), isFit) << element;
  }
  EXPECT_TRUE(check.isWellFormed("<p:a xmlns:p='u v'/>"));
  EXPECT_FALSE(check.isWellFormed("<a xmlns:p='u v'><q:b/></a>"));
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
