// Property lists: every way of reading a value, and the way out to XML and back.
#include "platform/property_list/property_list.h"

#include "fuzz/fuzz.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto list = PropertyList::parse(fuzz::text(data, size));
  if (!list) return 0;
  readInEveryWay(list->root());
  const auto entries = list->root().entries();
  for (const auto& [key, value] : *entries) require(list->value(key).has_value());
  const std::string shown = description(list->root());
  const auto xml = list->xml();
  if (!xml) return 0;
  const auto again = PropertyList::parse(*xml);
  // The library's form of an archive's references, which it reads back in dictionaries alone.
  if (xml->find("CF$UID") != std::string::npos) return 0;
  require(static_cast<bool>(again));
  require(description(again->root()) == shown);
  const auto xmlAgain = again->xml();
  require(xmlAgain && *xmlAgain == *xml);
  return 0;
}
