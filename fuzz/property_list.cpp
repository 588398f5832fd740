// Property lists: every way of reading a value, and the way out to XML and back, which gives the
// same values.
#include "platform/property_list/property_list.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <type_traits>

#include "fuzz/fuzz.h"
#include "platform/base/text.h"
#include "platform/property_list/binary_reader.h"
#include "platform/property_list/description.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) { return 0; }

namespace {

void readInEveryWay(const PropertyListValue& value) {
  const auto string = value.string();
  const auto data = value.data();
  const auto elements = value.elements();
  const auto entries = value.entries();
  const int kinds = (string ? 1 : 0) + (data ? 1 : 0) + (elements ? 1 : 0) + (entries ? 1 : 0);
  require(kinds <= 1);
  const bool isScalar = kinds == 0 || string;
  require(isScalar || (value.integer() == 0 && !value.boolean()));
  // What has an integer part is true.
  require(value.integer() == 0 || value.boolean());
  if (kinds == 0) require(!value.scalarText().empty());
  if (elements) {
    for (const auto& element : *elements) readInEveryWay(element);
  }
  if (entries) {
    for (const auto& [key, entry] : *entries) readInEveryWay(entry);
  }
}

using Node = PropertyListNode;

bool same(const Node& one, const Node& other);

bool same(double one, double other) {
  return (std::isnan(one) && std::isnan(other)) ||
         std::bit_cast<std::uint64_t>(one) == std::bit_cast<std::uint64_t>(other);
}
bool same(bool one, bool other) { return one == other; }
bool same(const std::string& one, const std::string& other) {
  return one == other && isXMLText(one);
}
bool same(const Node::Integer& one, const Node::Integer& other) {
  return one.magnitude == other.magnitude && one.negative == other.negative;
}
bool same(const Node::Date& one, const Node::Date& other) { return one.seconds == other.seconds; }
bool same(const Node::Data& one, const Node::Data& other) { return one.bytes == other.bytes; }
bool same(const Node::Entry& one, const Node::Entry& other) {
  return same(one.key, other.key) && same(one.value, other.value);
}
template <typename Element>
bool same(const std::vector<Element>& one, const std::vector<Element>& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const Element& a, const Element& b) { return same(a, b); });
}
bool same(const Node::Array& one, const Node::Array& other) {
  return same(one.elements, other.elements) && !one.isSet && !other.isSet;
}
bool same(const Node::Dictionary& one, const Node::Dictionary& other) {
  return same(one.entries, other.entries);
}
// XML has no form for them.
bool same(const Node::Null& /*one*/, const Node::Null& /*other*/) { return false; }
bool same(const Node::UID& /*one*/, const Node::UID& /*other*/) { return false; }
bool same(const Node::WideInteger& /*one*/, const Node::WideInteger& /*other*/) { return false; }

bool same(const Node& one, const Node& other) {
  return one.content.index() == other.content.index() &&
         std::visit(
             [&other](const auto& value) {
               return same(value, std::get<std::decay_t<decltype(value)>>(other.content));
             },
             one.content);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto list = PropertyList::parse(fuzz::text(data, size));
  if (!list) return 0;
  readInEveryWay(list->root());
  const auto entries = list->root().entries();
  for (const auto& [key, value] : *entries) require(list->value(key).has_value());
  const std::string shown = description(list->root());
  const auto xml = list->xml();
  if (!xml) {
    // What was XML once can be again, unless it has grown.
    require(isBinaryPropertyList(fuzz::text(data, size)) ||
            xml.error().description.find("too large") != std::string::npos);
    return 0;
  }
  const auto again = PropertyList::parse(*xml);
  require(static_cast<bool>(again));
  require(same(list->root().node(), again->root().node()));
  require(description(again->root()) == shown);
  const auto xmlAgain = again->xml();
  require(xmlAgain && *xmlAgain == *xml);
  return 0;
}
