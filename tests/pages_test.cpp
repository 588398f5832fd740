#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/debian/mod_tessel/pages/entries.h"
#include "host/debian/mod_tessel/pages/markup.h"
#include "host/debian/mod_tessel/pages/natural_order.h"
#include "host/debian/mod_tessel/pages/quantities.h"

namespace tessel {
namespace {

TEST(PageMarkup, BytesAreTextWhateverTheyAre) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"plain ä 日本 😀", "plain ä 日本 😀"},
      {"<b a=\"x\" b='y'>&amp;", "&lt;b a=&quot;x&quot; b=&#39;y&#39;&gt;&amp;amp;"},
      {"a\nb\tc\x1b\x7f", "a␊b␉c␛␡"},
      // Well-formed UTF-8 ends where RFC 3629 says: overlong, surrogates, beyond U+10FFFF, cut off.
      {"\xff|\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xe2\x82|\x80", "�|��|���|����|�|�"},
      {"\xc3<b>", "�&lt;b&gt;"},
      {"photo\u202Egpj.exe\u202C\u2066x\u2069\u2028", "photo�gpj.exe��x��"},
      {"\u0085\uFDD0\uFFFF\U0001FFFE", "����"},
      {"\u200Fשלום", "\u200Fשלום"},
  };
  for (const auto& [bytes, expected] : cases) {
    std::string text;
    appendText(text, bytes);
    EXPECT_EQ(expected, text) << bytes;
  }
}

TEST(PageOrder, NamesAreSortedAsPeopleLookForThem) {
  const auto before = [](const std::string& one, const std::string& other) {
    PageEntries entries({});
    entries.add(other, false, 0, 0);
    entries.add(one, false, 0, 0);
    return entries.take().front().name == one;
  };
  for (const auto& [one, other] : std::vector<std::pair<std::string, std::string>>{
           {"2", "10"},
           {"Page 9", "page 10"},
           {"a", "B"},
           {"b", "C"},
           {"ä", "b"},
           {"Ökonom", "Zebra"},
           {"e\u0301a", "éb"},
           {"Éa", "e\u0301b"},
           {"x9y", "x010y"},
           {"File1", "file1"},
           {"file01", "file1"},
           {"Ω", "ωb"},
           {"я", "Яb"},
           {"日本 2", "日本 10"},
           {"9", std::string(300, '9')},
           {std::string(300, '8'), std::string(300, '9')}}) {
    EXPECT_TRUE(before(one, other)) << one << " | " << other;
    EXPECT_FALSE(before(other, one)) << one << " | " << other;
  }
  EXPECT_EQ(naturalKey("Ångström 007"), naturalKey("a\u030Angstrom 7"));
}

TEST(PageOrder, QueriesAreUnderstoodOrPassedOver) {
  using By = Order::By;
  const std::vector<std::pair<std::string, Order>> cases{
      {"", {By::Name, false}},
      {"sort=size", {By::Size, false}},
      {"sort=time&order=desc", {By::Time, true}},
      {"order=desc", {By::Name, true}},
      {"x=1&sort=<b>&&=&order=up&sort=size&order=desc", {By::Size, true}},
      {"sort=time&sort=size", {By::Time, false}},
      {"sort", {By::Name, false}},
      {"connect", {By::Name, false}},
  };
  for (const auto& [query, order] : cases) {
    EXPECT_EQ(order, orderOf(query)) << query;
    const std::string again = queryOf(order);
    EXPECT_EQ(order, orderOf(again.substr(again.empty() ? 0 : 1)));
  }
}

TEST(PageEntries, AreInOrderAndBounded) {
  const auto shown = [](Order order, size_t most) {
    PageEntries entries(order, most);
    entries.add("b", false, 5, 300);
    entries.add("Dir", true, 4096, 100);
    entries.add("a", false, 5, 100);
    entries.add("c", false, 70, 200);
    entries.add("dir 2", true, 1, 400);
    EXPECT_EQ(2, entries.folders());
    EXPECT_EQ(3, entries.files());
    EXPECT_EQ(80, entries.size());
    std::string names;
    for (const PageEntry& entry : entries.take()) names += entry.name + "|";
    return names;
  };
  using By = Order::By;
  EXPECT_EQ("Dir|dir 2|a|b|c|", shown({By::Name, false}, 9));
  EXPECT_EQ("dir 2|Dir|c|b|a|", shown({By::Name, true}, 9));
  EXPECT_EQ("Dir|dir 2|a|b|c|", shown({By::Size, false}, 9));
  EXPECT_EQ("Dir|dir 2|c|a|b|", shown({By::Size, true}, 9));
  EXPECT_EQ("dir 2|Dir|b|c|a|", shown({By::Time, true}, 9));
  EXPECT_EQ("Dir|dir 2|a|", shown({By::Name, false}, 3));
  EXPECT_EQ("Dir|dir 2|c|a|", shown({By::Size, true}, 4));
  EXPECT_EQ("", shown({}, 0));
}

TEST(PageQuantities, SizesAndCounts) {
  for (const auto& [bytes, expected] :
       std::vector<std::pair<std::uint64_t, std::string>>{{0, "0 bytes"},
                                                          {1, "1 byte"},
                                                          {999, "999 bytes"},
                                                          {1000, "1.0 kB"},
                                                          {9999, "9.9 kB"},
                                                          {10'000, "10 kB"},
                                                          {999'999, "999 kB"},
                                                          {1'000'000, "1.0 MB"},
                                                          {18'446'744'073'709'551'615U, "18 EB"}}) {
    EXPECT_EQ(expected, shownSize(bytes));
  }
  EXPECT_EQ("1,234,567 files", shownCount(1'234'567, "file", "files"));
  EXPECT_EQ("123 files", shownCount(123, "file", "files"));
}

TEST(PageQuantities, TimesAreThoseOfTheMachinesZone) {
  ASSERT_EQ(0, ::setenv("TZ", "XST-5:30", 1));
  ::tzset();
  const ShownTime time = shownTime(1'709'164'800'999'999'999);
  EXPECT_EQ("2024-02-29 05:30 2024-02-29T05:30+0530",
            time.date + " " + time.clock + " " + time.exact);
  EXPECT_EQ("1970-01-01", shownTime(-1).date);
  EXPECT_EQ("XST", timeZone(0));
  ASSERT_EQ(0, ::unsetenv("TZ"));
  ::tzset();
}

}  // namespace
}  // namespace tessel
