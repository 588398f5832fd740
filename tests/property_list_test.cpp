// Property lists: what is read and as what, what is refused, what a rewrite gives, and whether
// another reader agrees.
#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "platform/base/hexadecimal.h"
#include "platform/process/program.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/description.h"
#include "platform/property_list/property_list.h"
#include "platform/property_list/scalar.h"

namespace tessel {
namespace {

using namespace std::string_literals;
using Node = PropertyListNode;

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

// A list with this value, in XML, under the key k.
std::string listOf(const std::string& value) {
  return "<plist version=\"1.0\"><dict><key>k</key>" + value + "</dict></plist>";
}

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
      {"<real>1e300</real>", true, kLargest},
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
    const auto list = PropertyList::parse(listOf(tried.value));
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

// A binary list with this object under the key k.
std::string binaryListOf(const std::string& object) {
  return binaryList({"\xD1\1\2"s, "Qk", object});
}

struct Rewriting {
  std::string list;
  std::string value;  // what stands under the key k afterwards, in XML
};

std::vector<Rewriting> rewritings() {
  const std::string utf16 =
      "\xFF\xFE<\0d\0i\0c\0t\0>\0<\0k\0e\0y\0>\0k\0<\0/\0k\0e\0y\0>\0<\0s\0t\0"
      "r\0i\0n\0g\0>\0\xE9\0\x3D\xD8\0\xDE<\0/\0s\0t\0r\0i\0n\0g\0>\0<\0/\0"
      "d\0i\0c\0t\0>\0"s;
  std::vector<Rewriting> cases{
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + listOf("<string>\xE9</string>"),
       "<string>é</string>"},
      {utf16, "<string>é😀</string>"},
      {"\xEF\xBB\xBF<!-- <dict> --><?x <dict>?><!DOCTYPE plist><plist><dict a='>'><key b=''>k</key>"
       "<true/></dict ></plist>\n<!-- end -->\n",
       "<true/>"},
      {"<!DOCTYPE plist SYSTEM \"nowhere\" [<!ELEMENT plist ANY>]>" + listOf("<false></false>"),
       "<false/>"},
      // Of a key that occurs twice the last value counts.
      {"<dict><key>k</key><false/><key>k</key><true/></dict>",
       "<false/>\n\t<key>k</key>\n\t<true/>"},
      {binaryList({"\xD2\1\1\2\3"s, "Qk", "\x08", "\x09"}), "<false/>\n\t<key>k</key>\n\t<true/>"},
  };
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"<integer>0081</integer>", "<integer>81</integer>"},
           {"<integer>0121</integer>", "<integer>121</integer>"},
           {"<integer>\n+7 </integer>", "<integer>7</integer>"},
           {"<integer>-0</integer>", "<integer>0</integer>"},
           {"<integer>0x1Fe</integer>", "<integer>510</integer>"},
           {"<integer>0Xffffffffffffffff</integer>", "<integer>18446744073709551615</integer>"},
           {"<integer>-9223372036854775808</integer>", "<integer>-9223372036854775808</integer>"},
           {"<real>443.0</real>", "<real>443</real>"},
           {"<real>1e5</real>", "<real>100000</real>"},
           {"<real>1e23</real>", "<real>99999999999999991611392</real>"},
           {"<real>0.10000000000000001</real>", "<real>0.1</real>"},
           {"<real> +.5e-7 </real>", "<real>5e-08</real>"},
           {"<real>-0.0</real>", "<real>-0</real>"},
           {"<real>5e-324</real>", "<real>5e-324</real>"},
           {"<real>-Infinity</real>", "<real>-inf</real>"},
           {"<real>-NaN</real>", "<real>nan</real>"},
           {"<date>0001-01-01T00:00:00Z</date>", "<date>0001-01-01T00:00:00Z</date>"},
           {"<date>9999-12-31T23:59:59Z</date>", "<date>9999-12-31T23:59:59Z</date>"},
           {"<date>2000-02-29T01:02Z</date>", "<date>2000-02-29T01:02:00Z</date>"},
           {"<date>1890-02-28Z</date>", "<date>1890-02-28T00:00:00Z</date>"},
           {"<data> A A\nr/\t</data>", "<data>\n\tAAr/\n\t</data>"},
           {"<data>YQ==</data>", "<data>\n\tYQ==\n\t</data>"},
           {"<data/>", "<data>\n\t</data>"},
           {"<string> a\r\nb&#13;<![CDATA[<c>]]><!-- d -->&#x7F; ]]&gt;\"</string>",
            "<string> a\nb&#13;&lt;c&gt;\x7F ]]&gt;\"</string>"},
           {"<string/>", "<string></string>"},
           {"<dict/>", "<dict/>"},
           {"<array><array/></array>", "<array>\n\t\t<array/>\n\t</array>"},
           {"<dict><key/><true/><key>a&amp;</key><dict/></dict>",
            "<dict>\n\t\t<key></key>\n\t\t<true/>\n\t\t<key>a&amp;</key>\n\t\t<dict/>\n\t</dict>"},
       }) {
    cases.push_back({listOf(from), to});
  }
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"\x10\xFF"s, "<integer>255</integer>"},
           {"\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "<integer>-1</integer>"},
           {"\x13\x80\0\0\0\0\0\0\0"s, "<integer>-9223372036854775808</integer>"},
           {"\x14\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s,
            "<integer>18446744073709551615</integer>"},
           {"\x14\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x80\0\0\0\0\0\0\0"s,
            "<integer>-9223372036854775808</integer>"},
           {"\x22\x3F\0\0\0"s, "<real>0.5</real>"},
           {"\x23\x40\x7B\xB0\0\0\0\0\0"s, "<real>443</real>"},
           {"\x33\xC1\xF4\0\0\0\0\0\0"s, "<date>1830-11-16T03:54:40Z</date>"},
           {"Sa\x7Fz", "<string>a\x7Fz</string>"},
           {"R\xC3\xA9", "<string>é</string>"},
           {"\x63\0\xE9\xD8\x3D\xDE\0"s, "<string>é😀</string>"},
           {"\xA2\1\1", "<array>\n\t\t<string>k</string>\n\t\t<string>k</string>\n\t</array>"},
       }) {
    cases.push_back({binaryListOf(from), to});
  }
  return cases;
}

TEST(PropertyList, KeepsValuesWhenItIsRewritten) {
  for (const Rewriting& tried : rewritings()) {
    const auto list = PropertyList::parse(tried.list);
    ASSERT_TRUE(list) << testing::PrintToString(tried.list) << list.error().description;
    const auto xml = list->xml();
    ASSERT_TRUE(xml) << xml.error().description;
    EXPECT_EQ(*xml,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
              "\t<key>k</key>\n\t" +
                  tried.value + "\n</dict>\n</plist>\n");
    const auto again = PropertyList::parse(*xml);
    ASSERT_TRUE(again) << *xml;
    EXPECT_EQ(*again->xml(), *xml);
    EXPECT_EQ(description(again->root()), description(list->root()));
  }
}

// Read, since they are well-formed, and refused when they would have to be written.
TEST(PropertyList, IsNotRewrittenWhenXMLHasNoFormForIt) {
  const std::string noText = "XML cannot hold its characters";
  const std::string noDate = "XML has no form for a date with a fraction of a second or far away";
  const std::string noInteger = "XML has no form for an integer of more than 64 bits";
  struct Refusal {
    std::string object;
    std::string description;
    std::string reason;
  };
  for (const auto& [object, text, reason] : std::vector<Refusal>{
           {"Sa\x01z", "a\x01z", noText},
           {"Sa\0z"s, "a\0z"s, noText},
           {"Q\xE9", "\xE9", noText},
           {"\x62\xD8\0\0x"s, "\xED\xA0\x80x", noText},  // half a surrogate pair
           {"\x61\xFF\xFF"s, "\xEF\xBF\xBF", noText},
           {"\x33\x3F\xE0\0\0\0\0\0\0"s, "2001-01-01 00:00:00 +0000", noDate},
           {"\x33\xBF\xE0\0\0\0\0\0\0"s, "2000-12-31 23:59:59 +0000", noDate},
           {"\x33\xC2\x2D\x63\xC3\x7F\x04\0\0"s, "0000-12-31 23:59:58 +0000", noDate},
           {"\x33\x7F\xF8\0\0\0\0\0\0"s, "nan", noDate},
           {"\x14\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0"s, "0x00000000000000010000000000000000",
            noInteger},
           {"\x14\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F\0\0\0\0\0\0\0"s,
            "0xffffffffffffffff7f00000000000000", noInteger},
           {"\xC1\1", "(\n    k\n)", "XML has no form for a set"},
           {"\x80\x07", "7", "XML has no form for a UID"},
           {"\0"s, "null", "XML has no form for a null value"},
       }) {
    const auto list = PropertyList::parse(binaryListOf(object));
    ASSERT_TRUE(list) << testing::PrintToString(object);
    EXPECT_EQ(description(list->value("k")), text);
    const auto xml = list->xml();
    ASSERT_FALSE(xml) << text;
    EXPECT_EQ(xml.error().description, reason);
  }
  PropertyList list;
  list.setString("a\x02", "b");
  EXPECT_FALSE(list.xml());
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

std::vector<std::string> malformedLists() {
  std::vector<std::string> lists{
      "",
      " <?xml version=\"1.0\"?><dict/>",
      "<plist><dict><key>a</key><array><true/></array></dict></plist",
      "<dict>",
      "<plist/>",
      "<plist><dict/></plist> x",
      "<plist><dict/><dict/></plist>",
      "<plist><plist><dict/></plist></plist>",
      "<plist>x<dict/></plist>",
      "<plist><key>a</key></plist>",
      "<dict><key>a</key></dict>",
      "<dict><true/></dict>",
      "<dict><key>a</key><key>b</key></dict>",
      "<dict></array>",
      "<dict><!-- </dict>",
      "<dict a=\">\" a=\"\"></dict>",
      "<!DOCTYPE plist [<!ENTITY a \"b\">]><dict/>",
      "<!DOCTYPE plist [<!ENTITY % a SYSTEM \"b\"> %a;]><dict/>",
      "<!DOCTYPE plist [<!ATTLIST dict a CDATA \"b\">]><dict/>",
      "<!DOCTYPE plist SYSTEM \"b\">" + listOf("<string>a&b;</string>"),
      "<dict><key>a</key><string><b/></string></dict>",
      "<dict><key>a</key><other/></dict>",
      "<array/>",
      "{ a = b; }",
      "<?xml version=\"1.0\" encoding=\"ASCII\"?>" + listOf("<string>\xE9</string>"),
      "\xFE\xFF\0<\0k\0e\0y\0>\xD8\0\0x\0y"s,
      "bplist15" + binaryList({"\xD0"}).substr(8),
      binaryList({}),
      binaryList({"\xA0"}),
      binaryList({"\xD1\1\1"s, "Qa"}).substr(0, 30),
      binaryList({"\xD1\1\1"s, "\x10\x07"}),                      // a key that is no text
      binaryList({"\xD1\1\2"s, "Qa", "\xA1\2"s}),                 // an array that holds itself
      binaryList({"\xD1\1\x09"s, "Qa"}),                          // a reference to nothing
      binaryList({"\xDF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s}),  // a huge count
      binaryListOf("\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s),
      binaryListOf("\x15" + std::string(32, '\0')),
      binaryListOf("\x07"),
  };
  for (const std::string value : {"", "abc", "81abc", "8 1", "- 5", "+-5", "0x", "-0x10", "0x1g",
                                  "1.5", "1_000", "18446744073709551616", "-9223372036854775809"}) {
    lists.push_back(listOf("<integer>" + value + "</integer>"));
  }
  for (const std::string value :
       {"", "abc", "1e", "1e999", "1e-999", "0x1p3", "1,5", "1 5", "nan(1)", "+-1", "."}) {
    lists.push_back(listOf("<real>" + value + "</real>"));
  }
  for (const std::string value :
       {"", "garbage", "2020-13-45T00:00:00Z", "2019-02-29T00:00:00Z", "0000-01-01T00:00:00Z",
        "2020-01-01T24:00:00Z", "2020-01-01T00:60:00Z", "2020-01-01T00:00:60Z", "2020-01-01",
        "2020-01-01T00:00:00", "2020-01-01T00:00:00+01:00", "2020-01-01T00:00:00.5Z",
        "2020-1-01T00:00:00Z", "12020-01-01T00:00:00Z", "-200-01-01T00:00:00Z", "2020-01Z"}) {
    lists.push_back(listOf("<date>" + value + "</date>"));
  }
  for (const std::string value :
       {"Y", "YQ", "YQ=", "=", "====", "YQ==YQ==", "YQ=Q", "Y!Q=", "YWI-", "YWJj="}) {
    lists.push_back(listOf("<data>" + value + "</data>"));
  }
  for (const std::string text : {"\x01", "&#1;", "&#xD800;", "\xED\xA0\x80", "\xEF\xBF\xBF",
                                 "&#xFFFE;", "\xC0\xAF", "\xF4\x90\x80\x80", "\xE9", "&b;"}) {
    lists.push_back(listOf("<string>" + text + "</string>"));
  }
  lists.push_back(listOf("<string>a\0b</string>"s));
  lists.push_back(listOf("<true>x</true>"));
  return lists;
}

TEST(PropertyList, RefusesWhatIsNotExactlyOneBoundedList) {
  for (const std::string& bytes : malformedLists()) {
    EXPECT_FALSE(PropertyList::parse(bytes)) << testing::PrintToString(bytes);
  }
  EXPECT_FALSE(PropertyList::parse(doubling(60)));
  EXPECT_TRUE(PropertyList::parse(doubling(10)));
  EXPECT_EQ(PropertyList::parse("<plist>\n<dict>\n<key>a</key>\n<integer>81x</integer>")
                .error()
                .description,
            "is no property list with a dictionary as its root (line 4: an integer that is none "
            "within 64 bits)");
}

std::string repeated(const std::string& text, size_t times) {
  std::string whole;
  for (size_t i = 0; i < times; ++i) whole += text;
  return whole;
}

TEST(PropertyList, IsBoundedInDepthAndSize) {
  const auto nested = [](size_t depth) {
    return listOf(repeated("<array>", depth - 1) + repeated("</array>", depth - 1));
  };
  EXPECT_FALSE(PropertyList::parse(nested(kDeepestPropertyList + 1)));
  const auto deepest = PropertyList::parse(nested(kDeepestPropertyList));
  ASSERT_TRUE(deepest);
  EXPECT_TRUE(PropertyList::parse(*deepest->xml()));
  PropertyList deeper;
  deeper.setValue("k", deepest->root());
  EXPECT_EQ(deeper.xml().error().description, "the list is nested too deep");

  // Too large when indented, and so not indented.
  const std::string head = "<plist><dict><key>k</key><array>";
  const std::string tail = "</array></dict></plist>";
  const size_t count = (kLargestPropertyList - 200) / 7;
  const auto large = PropertyList::parse(head + repeated("<true/>", count) + tail);
  ASSERT_TRUE(large);
  const auto xml = large->xml();
  ASSERT_TRUE(xml) << xml.error().description;
  EXPECT_EQ(PropertyList::parse(*xml)->value("k")->elements()->size(), count);
  const auto data = PropertyList::parse(
      head + "<data>" + std::string(kLargestPropertyList - 200, 'A') + "</data>" + tail);
  ASSERT_TRUE(data);
  EXPECT_TRUE(PropertyList::parse(*data->xml()));
  EXPECT_FALSE(PropertyList::parse("<dict>" + std::string(kLargestPropertyList, ' ') + "</dict>"));
}

TEST(PropertyList, IsChangedInPlace) {
  auto list = PropertyList::parse(
      "<dict><key>z</key><true/><key>b</key><true/><key>a</key><true/><key>b</key><true/></dict>");
  ASSERT_TRUE(list);
  list->setString("b", "new");
  list->setStrings("n", {"1", "2"});
  list->setValue("n2", *list->value("n"));
  list->setValue("n2", *list->value("n2"));
  list->remove("z");
  list->remove("nothing");
  const std::string strings =
      "\t<array>\n\t\t<string>1</string>\n\t\t<string>2</string>\n\t</array>\n";
  EXPECT_PRED2([](const std::string& text,
                  const std::string& part) { return text.find(part) != std::string::npos; },
               *list->xml(),
               "<dict>\n\t<key>b</key>\n\t<string>new</string>\n\t<key>a</key>\n\t<true/>\n"
               "\t<key>n</key>\n" +
                   strings + "\t<key>n2</key>\n" + strings + "</dict>");
}

// The value in a form that the script below gives as well.
std::string canonical(const Node& node) {
  struct Visitor {
    std::string operator()(const Node::Null& /*null*/) const { return "n"; }
    std::string operator()(const std::string& text) const { return "s" + hexadecimal(text); }
    std::string operator()(const Node::Integer& integer) const {
      return "i" + integerText(integer);
    }
    std::string operator()(const Node::WideInteger& /*wide*/) const { return "wide"; }
    std::string operator()(double real) const {
      if (std::isnan(real)) return "rnan";
      const auto bits = std::bit_cast<std::uint64_t>(real);
      std::string bytes;
      for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift);
      return "r" + hexadecimal(bytes);
    }
    std::string operator()(bool boolean) const { return boolean ? "b1" : "b0"; }
    std::string operator()(const Node::Date& date) const {
      return "d" + exactDateText(date).value_or("(inexact)");
    }
    std::string operator()(const Node::Data& data) const { return "x" + hexadecimal(data.bytes); }
    std::string operator()(const Node::UID& uid) const { return "u" + std::to_string(uid.number); }
    std::string operator()(const Node::Array& array) const {
      std::string text = "[";
      for (const Node& element : array.elements) text += canonical(element) + ",";
      return text + "]";
    }
    std::string operator()(const Node::Dictionary& dictionary) const {
      std::string text = "{";
      const Node node{dictionary};
      const auto entries = PropertyListValue(node).entries();
      for (const auto& [key, value] : *entries) {
        text += hexadecimal(key) + "=" + canonical(value.node()) + ",";
      }
      return text + "}";
    }
  };
  return std::visit(Visitor{}, node.content);
}

constexpr const char* kPythonReader = R"(
import datetime, math, plistlib, struct, sys
def canonical(v):
    if v is None: return 'n'
    if isinstance(v, bool): return 'b%d' % v
    if isinstance(v, int): return 'i%d' % v
    if isinstance(v, float): return 'rnan' if math.isnan(v) else 'r' + struct.pack('>d', v).hex()
    if isinstance(v, str): return 's' + v.encode('utf-8', 'surrogatepass').hex()
    if isinstance(v, bytes): return 'x' + v.hex()
    if isinstance(v, datetime.datetime): return 'd' + v.isoformat() + 'Z'
    if isinstance(v, plistlib.UID): return 'u%d' % v.data
    if isinstance(v, list): return '[' + ''.join(canonical(e) + ',' for e in v) + ']'
    entries = sorted((k.encode('utf-8', 'surrogatepass').hex(), canonical(e)) for k, e in v.items())
    return '{' + ''.join(k + '=' + e + ',' for k, e in entries) + '}'
with open(sys.argv[1], 'rb') as file:
    while size := file.readline():
        raw = file.read(int(size))
        form = plistlib.FMT_BINARY if raw.startswith(b'bplist') else plistlib.FMT_XML
        try:
            print(canonical(plistlib.loads(raw, fmt=form)))
        except Exception:
            print('refused')
)";

// What Python's reader takes each of the lists for.
std::vector<std::string> asPythonReads(const std::vector<std::string>& lists) {
  const std::string path = testing::TempDir() + "lists." + std::to_string(::getpid());
  std::ofstream file(path, std::ios::binary);
  for (const std::string& list : lists) file << list.size() << "\n" << list;
  file.close();
  const auto output = captureProgram("/usr/bin/python3", {"-c", kPythonReader, path});
  (void)::unlink(path.c_str());
  if (!output || !output->standardError.empty()) {
    ADD_FAILURE() << (output ? output->standardError : output.error().description);
    return {};
  }
  std::vector<std::string> readings;
  std::istringstream lines(output->standardOutput);
  for (std::string line; std::getline(lines, line);) readings.push_back(line);
  return readings;
}

TEST(PropertyList, MeansTheSameToPython) {
  std::vector<std::string> lists = malformedLists();
  for (const Rewriting& tried : rewritings()) lists.push_back(tried.list);
  lists.push_back(binaryListOf("\x80\x07"));
  const size_t originals = lists.size();
  std::vector<std::string> expected;
  for (size_t i = 0; i < originals; ++i) {
    const auto list = PropertyList::parse(lists[i]);
    expected.push_back(list ? canonical(list->root().node()) : "refused");
    const auto xml = list ? list->xml() : Result<std::string>(Error{});
    if (xml) lists.push_back(*xml);
  }
  const std::vector<std::string> readings = asPythonReads(lists);
  ASSERT_EQ(readings.size(), lists.size());
  size_t rewritten = originals;
  size_t agreed = 0;
  for (size_t i = 0; i < originals; ++i) {
    if (expected[i] == "refused") continue;
    if (readings[i] != "refused") {
      EXPECT_EQ(readings[i], expected[i]) << testing::PrintToString(lists[i]);
      ++agreed;
    }
    if (!PropertyList::parse(lists[i])->xml()) continue;
    EXPECT_EQ(readings[rewritten], expected[i]) << lists[rewritten];
    ++rewritten;
  }
  EXPECT_EQ(rewritten, lists.size());
  EXPECT_GT(agreed, originals / 5);
}

TEST(Description, IsOldStyleText) {
  const auto list = PropertyList::parse(
      "<dict><key>z</key><true/><key>a b</key><string/><key>B</key><string>/x:1.2_$</string>"
      "<key>q</key><string>\"\\\n\t&#127;é</string><key>data</key><data>AAr/</data>"
      "<key>date</key><date>2150-12-31T23:59:59Z</date><key>real</key><real>0.1</real>"
      "<key>whole</key><real>1e5</real><key>n</key><integer>-5</integer>"
      "<key>list</key><array><array/><dict/><false/></array></dict>");
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
    q = "\"\\\n\t\177é";
    real = 0.1;
    whole = 100000;
    z = 1;
})");
  EXPECT_EQ(description(*list->value("n")), "-5");
  EXPECT_EQ(description(*list->value("q")), "\"\\\n\t\x7Fé");
}

}  // namespace
}  // namespace tessel
