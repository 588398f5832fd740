#include "platform/property_list/xml_writer.h"

#include <algorithm>
#include <string_view>
#include <variant>

#include "platform/base/text.h"
#include "platform/property_list/bounds.h"
#include "platform/property_list/scalar.h"

namespace tessel {

namespace {

using Node = PropertyListNode;

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
constexpr std::string_view kTail = "</plist>\n";
constexpr const char* kTooLarge = "the list is too large for XML";

enum class Layout { Lines, OneLine };

// Adds values to a text until one cannot be added.
class Writer {
 public:
  explicit Writer(Layout layout) : inLines_(layout == Layout::Lines), text_(kHead) {}

  Result<std::string> write(const Node& root) {
    add(root, 0);
    if (!inLines_) text_ += '\n';
    text_ += kTail;
    if (text_.size() > kLargestPropertyList) refuse(kTooLarge);
    if (refusal_ != nullptr) return Error{refusal_};
    return std::move(text_);
  }

 private:
  void refuse(const char* reason) {
    if (refusal_ == nullptr) refusal_ = reason;
  }

  void add(const Node& node, size_t depth) {
    if (text_.size() > kLargestPropertyList) refuse(kTooLarge);
    if (refusal_ != nullptr) return;
    std::visit([&](const auto& value) { addValue(value, depth); }, node.content);
  }

  void addValue(const Node::Null& /*value*/, size_t /*depth*/) {
    refuse("XML has no form for a null value");
  }
  void addValue(const Node::WideInteger& /*value*/, size_t /*depth*/) {
    refuse("XML has no form for an integer of more than 64 bits");
  }
  void addValue(const Node::UID& /*value*/, size_t /*depth*/) {
    refuse("XML has no form for a UID");
  }

  void addValue(const std::string& value, size_t depth) {
    addLine(depth, "string", [&] { addEscaped(value); });
  }
  void addValue(const Node::Integer& value, size_t depth) {
    addLine(depth, "integer", [&] { text_ += integerText(value); });
  }
  void addValue(double value, size_t depth) {
    addLine(depth, "real", [&] { text_ += realText(value); });
  }
  void addValue(bool value, size_t depth) { addTag(depth, value ? "<true/>" : "<false/>"); }

  void addValue(const Node::Date& value, size_t depth) {
    const auto exact = exactDateText(value);
    if (!exact) return refuse("XML has no form for a date with a fraction of a second or far away");
    addLine(depth, "date", [&] { text_ += *exact; });
  }

  // In lines of 76 columns, a tab being eight of them, as other writers do.
  void addValue(const Node::Data& value, size_t depth) {
    if (!inLines_) {
      const size_t whole = (value.bytes.size() / 3 + 1) * 4;
      text_ += "<data>";
      addBase64(value.bytes, whole, "", text_);
      text_ += "</data>";
      return;
    }
    constexpr size_t kColumns = 76;
    constexpr size_t kTab = 8;
    const size_t lineLength = (kColumns - kTab * std::min(depth, kTab)) / 4 * 4;
    addTag(depth, "<data>");
    addBase64(value.bytes, lineLength, std::string(depth, '\t'), text_);
    addTag(depth, "</data>");
  }

  void addValue(const Node::Array& value, size_t depth) {
    if (value.isSet) return refuse("XML has no form for a set");
    addContainer(depth, "array", value.elements,
                 [&](const Node& element) { add(element, depth + 1); });
  }

  void addValue(const Node::Dictionary& value, size_t depth) {
    addContainer(depth, "dict", value.entries, [&](const Node::Entry& entry) {
      addLine(depth + 1, "key", [&] { addEscaped(entry.key); });
      add(entry.value, depth + 1);
    });
  }

  template <typename Elements, typename Add>
  void addContainer(size_t depth, std::string_view name, const Elements& elements, Add addElement) {
    if (depth >= kDeepestPropertyList) return refuse("the list is nested too deep");
    const std::string tag(name);
    if (elements.empty()) return addTag(depth, "<" + tag + "/>");
    addTag(depth, "<" + tag + ">");
    for (const auto& element : elements) {
      if (refusal_ != nullptr) return;
      addElement(element);
    }
    addTag(depth, "</" + tag + ">");
  }

  void indent(size_t depth) {
    if (inLines_) text_.append(depth, '\t');
  }

  void addTag(size_t depth, std::string_view tag) {
    indent(depth);
    text_ += tag;
    if (inLines_) text_ += '\n';
  }

  template <typename Add>
  void addLine(size_t depth, std::string_view name, Add addContent) {
    indent(depth);
    text_.append("<").append(name).append(">");
    addContent();
    text_.append("</").append(name).append(">");
    if (inLines_) text_ += '\n';
  }

  void addEscaped(std::string_view string) {
    if (!isXMLText(string)) return refuse("XML cannot hold its characters");
    while (!string.empty()) {
      const std::string_view plain = string.substr(0, string.find_first_of("&<>\r"));
      text_ += plain;
      string.remove_prefix(plain.size());
      if (string.empty()) return;
      switch (string.front()) {
        case '&':
          text_ += "&amp;";
          break;
        case '<':
          text_ += "&lt;";
          break;
        case '>':
          text_ += "&gt;";
          break;
        default:  // a carriage return would read as a newline (XML 1.0, section 2.11)
          text_ += "&#13;";
      }
      string.remove_prefix(1);
    }
  }

  bool inLines_;
  std::string text_;
  const char* refusal_ = nullptr;
};

}  // namespace

Result<std::string> writeXMLPropertyList(const PropertyListNode& root) {
  Result<std::string> text = Writer(Layout::Lines).write(root);
  if (text || text.error().description != kTooLarge) return text;
  return Writer(Layout::OneLine).write(root);
}

}  // namespace tessel
