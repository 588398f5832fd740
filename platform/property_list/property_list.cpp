#include "platform/property_list/property_list.h"

#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/property_list/bounds.h"

namespace tessel {

namespace {

using CString = std::unique_ptr<char, void (*)(void*)>;

std::string toXML(plist_t node) {
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node, &text, &length);
  const CString owned(text, std::free);
  return text == nullptr ? std::string() : std::string(text, length);
}

// What stands between the tags of a scalar's XML form. The library's own getters cannot tell a
// negative integer from a large one and cut dates to 32 bits; its writer does neither.
std::string xmlContent(plist_t node) {
  const std::string xml = toXML(node);
  const size_t end = xml.rfind("</", xml.rfind("</plist") - 1);
  const size_t begin = xml.rfind('>', end);
  if (end == std::string::npos || begin == std::string::npos) return {};
  return xml.substr(begin + 1, end - begin - 1);
}

double realOf(plist_t node) {
  double value = 0;
  plist_get_real_val(node, &value);
  return value;
}

bool isTrue(plist_t node) {
  std::uint8_t value = 0;
  plist_get_bool_val(node, &value);
  return value != 0;
}

}  // namespace

std::optional<std::string> PropertyListValue::string() const {
  if (plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text == nullptr ? std::string() : std::string(text, length);
}

bool PropertyListValue::boolean() const {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return isTrue(node);
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      return value != 0;
    }
    case PLIST_REAL:
      return realOf(node) != 0;
    case PLIST_STRING:
      return saysYes(*string());
    default:
      return false;
  }
}

std::int32_t PropertyListValue::integer() const {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return isTrue(node) ? 1 : 0;
    case PLIST_UINT:
      return leadingInteger(xmlContent(node));
    case PLIST_REAL: {
      const double value = realOf(node);
      if (std::isnan(value)) return 0;
      using Bounds = std::numeric_limits<std::int32_t>;
      return static_cast<std::int32_t>(
          std::clamp(value, double{Bounds::min()}, double{Bounds::max()}));
    }
    case PLIST_STRING:
      return leadingInteger(*string());
    default:
      return 0;
  }
}

std::optional<std::vector<PropertyListValue>> PropertyListValue::elements() const {
  if (plist_get_node_type(node) != PLIST_ARRAY) return std::nullopt;
  std::vector<PropertyListValue> values;
  plist_array_iter created = nullptr;
  plist_array_new_iter(node, &created);
  const std::unique_ptr<void, void (*)(void*)> iterator(created, std::free);
  while (iterator) {
    plist_t value = nullptr;
    plist_array_next_item(node, iterator.get(), &value);
    if (value == nullptr) break;
    values.emplace_back(value);
  }
  return values;
}

std::optional<std::map<std::string, PropertyListValue>> PropertyListValue::entries() const {
  if (plist_get_node_type(node) != PLIST_DICT) return std::nullopt;
  plist_dict_iter created = nullptr;
  plist_dict_new_iter(node, &created);
  const std::unique_ptr<void, void (*)(void*)> iterator(created, std::free);
  std::map<std::string, PropertyListValue> values;
  while (iterator) {
    char* key = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator.get(), &key, &value);
    const CString owned(key, std::free);
    if (value == nullptr) break;
    values.emplace(key, PropertyListValue(value));
  }
  return values;
}

std::optional<std::string> PropertyListValue::data() const {
  if (plist_get_node_type(node) != PLIST_DATA) return std::nullopt;
  std::uint64_t length = 0;
  const char* bytes = plist_get_data_ptr(node, &length);
  return bytes == nullptr ? std::string() : std::string(bytes, length);
}

std::string PropertyListValue::scalarText() const {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
      return isTrue(node) ? "1" : "0";
    case PLIST_REAL: {
      std::array<char, 32> digits{};
      // XML keeps no sign of a zero and of what is no number.
      const double real = realOf(node);
      const double value = real == 0 || std::isnan(real) ? std::abs(real) : real;
      const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
      return {digits.data(), end.ptr};
    }
    case PLIST_UID: {
      std::uint64_t value = 0;
      plist_get_uid_val(node, &value);
      return std::to_string(value);
    }
    case PLIST_DATE: {
      std::string date = xmlContent(node);  // YYYY-MM-DDTHH:MM:SSZ
      std::replace(date.begin(), date.end(), 'T', ' ');
      if (date.ends_with('Z')) date.replace(date.size() - 1, 1, " +0000");
      return date;
    }
    default:
      return xmlContent(node);
  }
}

bool PropertyListValue::survivesRewriting() const {
  const auto survives = [](const PropertyListValue& value) { return value.survivesRewriting(); };
  if (const auto values = entries()) {
    return values->size() == plist_dict_get_size(node) &&
           std::all_of(values->begin(), values->end(),
                       [&](const auto& entry) { return survives(entry.second); });
  }
  if (const auto values = elements()) return std::all_of(values->begin(), values->end(), survives);
  constexpr size_t kLongestYear = 4;
  const size_t year = plist_get_node_type(node) == PLIST_DATE ? xmlContent(node).find('-') : 1;
  return year >= 1 && year <= kLongestYear;
}

PropertyList::PropertyList() : dictionary(plist_new_dict(), plist_free) {}

Result<PropertyList> PropertyList::load(const std::string& path) {
  const Result<std::string> bytes = FileManager().readFile(path, kLargestPropertyList);
  if (!bytes) return bytes.error();
  Result<PropertyList> list = parse(*bytes);
  if (!list) return Error{path + " " + list.error().description};
  return list;
}

Result<PropertyList> PropertyList::parse(std::string_view bytes) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const Error malformed{"is no property list with a dictionary as its root"};
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  if (!isBoundedPropertyList(bytes)) return malformed;
  plist_t parsed = nullptr;
  const auto length = static_cast<std::uint32_t>(bytes.size());
  if (isBinaryPropertyList(bytes)) {
    plist_from_bin(bytes.data(), length, &parsed);
  } else {
    plist_from_xml(bytes.data(), length, &parsed);
  }
  Root root(parsed, plist_free);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return malformed;
  if (!PropertyListValue(root.get()).survivesRewriting()) return malformed;
  return PropertyList(std::move(root));
}

std::optional<PropertyListValue> PropertyList::value(const std::string& key) const {
  plist_t node = plist_dict_get_item(dictionary.get(), key.c_str());
  if (node == nullptr) return std::nullopt;
  return PropertyListValue(node);
}

PropertyListValue PropertyList::root() const { return PropertyListValue(dictionary.get()); }

void PropertyList::setString(const std::string& key, const std::string& text) {
  plist_dict_set_item(dictionary.get(), key.c_str(), plist_new_string(text.c_str()));
}

void PropertyList::setStrings(const std::string& key, const std::vector<std::string>& texts) {
  plist_t array = plist_new_array();
  for (const std::string& text : texts) {
    plist_array_append_item(array, plist_new_string(text.c_str()));
  }
  plist_dict_set_item(dictionary.get(), key.c_str(), array);
}

void PropertyList::setValue(const std::string& key, const PropertyListValue& value) {
  plist_dict_set_item(dictionary.get(), key.c_str(), plist_copy(value.node));
}

void PropertyList::remove(const std::string& key) {
  if (value(key)) plist_dict_remove_item(dictionary.get(), key.c_str());
}

Result<std::string> PropertyList::xml() const {
  // A carriage return that is not escaped reads as a newline (XML 1.0, section 2.11); the library
  // writes none of its own.
  const std::string raw = toXML(dictionary.get());
  std::string escaped;
  escaped.reserve(raw.size());
  for (const char c : raw) {
    if (c == '\r') {
      escaped += "&#13;";
    } else {
      escaped += c;
    }
  }
  if (!parse(escaped)) return Error{"the list is too large for XML"};
  return escaped;
}

}  // namespace tessel
