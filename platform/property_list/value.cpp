#include "platform/property_list/value.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

#include "platform/base/hexadecimal.h"
#include "platform/base/text.h"
#include "platform/property_list/scalar.h"

namespace tessel {

namespace {

using Node = PropertyListNode;
using Bounds = std::numeric_limits<std::int32_t>;

bool isNegative(const Node::WideInteger& integer) { return integer.bytes[0] >= 0x80; }

std::int32_t clamped(const Node::Integer& integer) {
  constexpr std::uint64_t kLargest = Bounds::max();
  const std::uint64_t magnitude =
      std::min(integer.magnitude, kLargest + (integer.negative ? 1 : 0));
  const auto value = static_cast<std::int64_t>(magnitude);
  return static_cast<std::int32_t>(integer.negative ? -value : value);
}

std::int32_t clamped(double real) {
  if (std::isnan(real)) return 0;
  return static_cast<std::int32_t>(std::clamp(real, double{Bounds::min()}, double{Bounds::max()}));
}

}  // namespace

std::optional<std::string> PropertyListValue::string() const {
  const auto* text = std::get_if<std::string>(&node_->content);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

bool PropertyListValue::boolean() const {
  const auto& content = node_->content;
  if (const auto* boolean = std::get_if<bool>(&content)) return *boolean;
  if (const auto* integer = std::get_if<Node::Integer>(&content)) return integer->magnitude != 0;
  if (const auto* real = std::get_if<double>(&content)) return *real != 0;
  if (const auto* text = std::get_if<std::string>(&content)) return saysYes(*text);
  return std::holds_alternative<Node::WideInteger>(content);
}

std::int32_t PropertyListValue::integer() const {
  const auto& content = node_->content;
  if (const auto* boolean = std::get_if<bool>(&content)) return *boolean ? 1 : 0;
  if (const auto* integer = std::get_if<Node::Integer>(&content)) return clamped(*integer);
  if (const auto* real = std::get_if<double>(&content)) return clamped(*real);
  if (const auto* text = std::get_if<std::string>(&content)) return leadingInteger(*text);
  const auto* wide = std::get_if<Node::WideInteger>(&content);
  if (wide == nullptr) return 0;
  return isNegative(*wide) ? Bounds::min() : Bounds::max();
}

std::optional<PropertyListValue::Elements> PropertyListValue::elements() const {
  const auto* array = std::get_if<Node::Array>(&node_->content);
  if (array == nullptr) return std::nullopt;
  return Elements(array->elements.begin(), array->elements.end());
}

std::optional<PropertyListValue::Entries> PropertyListValue::entries() const {
  const auto* dictionary = std::get_if<Node::Dictionary>(&node_->content);
  if (dictionary == nullptr) return std::nullopt;
  std::vector<const Node::Entry*> sorted;
  sorted.reserve(dictionary->entries.size());
  for (const Node::Entry& entry : dictionary->entries) sorted.push_back(&entry);
  // Those of one key stay in their order, which is that of their addresses.
  std::sort(sorted.begin(), sorted.end(), [](const Node::Entry* a, const Node::Entry* b) {
    const int order = a->key.compare(b->key);
    return order != 0 ? order < 0 : a < b;
  });
  Entries entries;
  entries.reserve(sorted.size());
  for (size_t i = 0; i < sorted.size(); ++i) {
    if (i + 1 < sorted.size() && sorted[i + 1]->key == sorted[i]->key) continue;
    entries.emplace_back(sorted[i]->key, PropertyListValue(sorted[i]->value));
  }
  return entries;
}

std::optional<std::string> PropertyListValue::data() const {
  const auto* data = std::get_if<Node::Data>(&node_->content);
  return data == nullptr ? std::nullopt : std::optional(data->bytes);
}

std::string PropertyListValue::scalarText() const {
  const auto& content = node_->content;
  if (const auto* boolean = std::get_if<bool>(&content)) return *boolean ? "1" : "0";
  if (const auto* integer = std::get_if<Node::Integer>(&content)) return integerText(*integer);
  if (const auto* real = std::get_if<double>(&content)) return realText(*real);
  if (const auto* date = std::get_if<Node::Date>(&content)) return dateText(*date);
  if (const auto* uid = std::get_if<Node::UID>(&content)) return std::to_string(uid->number);
  if (const auto* wide = std::get_if<Node::WideInteger>(&content)) {
    const std::string bytes(wide->bytes.begin(), wide->bytes.end());
    return "0x" + hexadecimal(bytes);
  }
  return std::holds_alternative<Node::Null>(content) ? "null" : "";
}

}  // namespace tessel
