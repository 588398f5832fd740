#include "platform/description.h"

#include <cstddef>
#include <string_view>

#include "platform/text.h"

namespace tessel {

namespace {

constexpr size_t kIndent = 4;

bool isBare(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '$' || c == '/' || c == ':' || c == '.';
}

std::string escaped(char c) {
  const unsigned byte = static_cast<unsigned char>(c);
  switch (c) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      break;
  }
  if (byte >= 0x20 && byte != 0x7F) return {c};
  const auto digit = [byte](unsigned shift) {
    return static_cast<char>('0' + ((byte >> shift) & 7U));
  };
  return {'\\', digit(6), digit(3), digit(0)};
}

std::string quotedWhereNeeded(std::string_view text) {
  bool bare = !text.empty();
  for (const char c : text) bare = bare && isBare(c);
  if (bare) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) quoted += escaped(c);
  return quoted + '"';
}

// An array whose elements `text` renders.
template <typename Elements, typename Text>
std::string array(const Elements& elements, size_t indent, Text text) {
  std::string whole = "(\n";
  size_t left = elements.size();
  for (const auto& element : elements) {
    whole += std::string(indent + kIndent, ' ') + text(element) + (--left > 0 ? ",\n" : "\n");
  }
  return whole + std::string(indent, ' ') + ")";
}

std::string nested(const PropertyListValue& value, size_t indent) {
  const std::string inner(indent + kIndent, ' ');
  const std::string outer(indent, ' ');
  if (const auto entries = value.entries()) {
    std::string text = "{\n";
    for (const auto& [key, entry] : *entries) {
      text += inner + quotedWhereNeeded(key) + " = " + nested(entry, indent + kIndent) + ";\n";
    }
    return text + outer + "}";
  }
  if (const auto elements = value.elements()) {
    return array(*elements, indent,
                 [&](const auto& element) { return nested(element, indent + kIndent); });
  }
  if (const auto string = value.string()) return quotedWhereNeeded(*string);
  if (const auto data = value.data()) return "<" + hexadecimal(*data) + ">";
  return quotedWhereNeeded(value.scalarText());
}

}  // namespace

std::string description(const PropertyListValue& value) {
  if (const auto string = value.string()) return *string;
  const bool isScalar = !value.entries() && !value.elements() && !value.data();
  return isScalar ? value.scalarText() : nested(value, 0);
}

std::string description(const std::optional<PropertyListValue>& value) {
  return value ? description(*value) : kMissingValue;
}

std::string description(const std::vector<std::string>& strings) {
  return array(strings, 0, quotedWhereNeeded);
}

}  // namespace tessel
