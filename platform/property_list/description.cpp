#include "platform/property_list/description.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "platform/base/hexadecimal.h"

namespace tessel {

namespace {

constexpr size_t kIndent = 4;

bool isBare(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '$' || c == '/' || c == ':' || c == '.';
}

// All of what follows appends to the text, so that deep values are not copied level by level.
void addEscaped(char c, std::string& text) {
  const unsigned byte = static_cast<unsigned char>(c);
  switch (c) {
    case '"':
      text += "\\\"";
      return;
    case '\\':
      text += "\\\\";
      return;
    case '\n':
      text += "\\n";
      return;
    case '\r':
      text += "\\r";
      return;
    case '\t':
      text += "\\t";
      return;
    default:
      break;
  }
  if (byte >= 0x20 && byte != 0x7F) {
    text += c;
    return;
  }
  const auto digit = [byte](unsigned shift) {
    return static_cast<char>('0' + ((byte >> shift) & 7U));
  };
  text += {'\\', digit(6), digit(3), digit(0)};
}

void addQuotedWhereNeeded(std::string_view string, std::string& text) {
  if (!string.empty() && std::all_of(string.begin(), string.end(), isBare)) {
    text += string;
    return;
  }
  text += '"';
  for (const char c : string) addEscaped(c, text);
  text += '"';
}

// An array whose elements `add` adds.
template <typename Elements, typename Add>
void addArray(const Elements& elements, size_t indent, std::string& text, Add add) {
  text += "(\n";
  size_t left = elements.size();
  for (const auto& element : elements) {
    text.append(indent + kIndent, ' ');
    add(element);
    text += --left > 0 ? ",\n" : "\n";
  }
  text.append(indent, ' ').append(")");
}

void addNested(const PropertyListValue& value, size_t indent, std::string& text) {
  if (const auto entries = value.entries()) {
    text += "{\n";
    for (const auto& [key, entry] : *entries) {
      text.append(indent + kIndent, ' ');
      addQuotedWhereNeeded(key, text);
      text += " = ";
      addNested(entry, indent + kIndent, text);
      text += ";\n";
    }
    text.append(indent, ' ').append("}");
  } else if (const auto elements = value.elements()) {
    addArray(*elements, indent, text,
             [&](const auto& element) { addNested(element, indent + kIndent, text); });
  } else if (const auto string = value.string()) {
    addQuotedWhereNeeded(*string, text);
  } else if (const auto data = value.data()) {
    text.append("<").append(hexadecimal(*data)).append(">");
  } else {
    addQuotedWhereNeeded(value.scalarText(), text);
  }
}

}  // namespace

std::string description(const PropertyListValue& value) {
  if (const auto string = value.string()) return *string;
  if (!value.entries() && !value.elements() && !value.data()) return value.scalarText();
  std::string text;
  addNested(value, 0, text);
  return text;
}

std::string description(const std::optional<PropertyListValue>& value) {
  return value ? description(*value) : kMissingValue;
}

std::string description(const std::vector<std::string>& strings) {
  std::string text;
  addArray(strings, 0, text,
           [&text](const std::string& string) { addQuotedWhereNeeded(string, text); });
  return text;
}

}  // namespace tessel
