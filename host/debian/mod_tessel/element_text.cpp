#include "host/debian/mod_tessel/element_text.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "host/debian/mod_tessel/property_request.h"

namespace tessel {

namespace {

void appendEscaped(std::string& text, const char* bytes, bool isAttribute) {
  for (; *bytes != '\0'; ++bytes) {
    const char c = *bytes;
    if (c == '&') {
      text += "&amp;";
    } else if (c == '<') {
      text += "&lt;";
    } else if (c == '>') {
      text += "&gt;";
    } else if (c == '\r') {
      text += "&#13;";
    } else if (isAttribute && c == '"') {
      text += "&quot;";
    } else if (isAttribute && (c == '\t' || c == '\n')) {
      text += c == '\t' ? "&#9;" : "&#10;";
    } else {
      text += c;
    }
  }
}

class Writer {
 public:
  explicit Writer(const apr_array_header_t* namespaces) : namespaces_(namespaces) {}

  // What the text will need: every name in it, and the numbers of namespaces.
  void collect(const apr_xml_elem* element) {
    add(element->ns, element->name);
    for (const apr_xml_attr* attribute = element->attr; attribute != nullptr;
         attribute = attribute->next) {
      add(attribute->ns, attribute->name);
    }
    for (const apr_xml_elem* child = element->first_child; child != nullptr; child = child->next) {
      collect(child);
    }
  }

  bool isWellFormed(apr_pool_t* pool) const {
    return areWellFormed(names_, pool) &&
           std::all_of(used_.begin(), used_.end(),
                       [this](int number) { return tessel::isWellFormed(uri(number)); });
  }

  void write(const apr_xml_elem* element, const char* language) {
    text_ += '<';
    writeName(element->ns, element->name);
    if (text_.size() == 1 + nameSize_) {
      for (const int number : used_) {
        text_ += " xmlns:ns" + std::to_string(number) + "=\"";
        text_ += uri(number);
        text_ += '"';
      }
    }
    for (const apr_xml_attr* attribute = element->attr; attribute != nullptr;
         attribute = attribute->next) {
      text_ += ' ';
      writeName(attribute->ns, attribute->name);
      writeValue(attribute->value);
    }
    // The parser hands a language down to all that it is the language of.
    if (element->lang != nullptr &&
        (language == nullptr || element->lang != std::string_view(language))) {
      text_ += " xml:lang";
      writeValue(element->lang);
    }
    if (element->first_cdata.first == nullptr && element->first_child == nullptr) {
      text_ += "/>";
      return;
    }
    text_ += '>';
    writeText(element->first_cdata);
    for (const apr_xml_elem* child = element->first_child; child != nullptr; child = child->next) {
      write(child, element->lang);
      writeText(child->following_cdata);
    }
    text_ += "</";
    writeName(element->ns, element->name);
    text_ += '>';
  }

  std::string take() { return std::move(text_); }

 private:
  void add(int number, const char* name) {
    // Each once: a client may repeat a long namespace thousands of times.
    if (number >= 0) used_.insert(number);
    std::string_view local = name;
    // The parser leaves this prefix, the only one that needs no declaration, where it is.
    constexpr std::string_view kReserved = "xml:";
    if (number < 0 && local.starts_with(kReserved)) local.remove_prefix(kReserved.size());
    names_.insert(local);
  }

  const char* uri(int number) const { return APR_XML_GET_URI_ITEM(namespaces_, number); }

  void writeName(int number, const char* name) {
    const size_t before = text_.size();
    if (number >= 0) text_ += "ns" + std::to_string(number) + ":";
    text_ += name;
    nameSize_ = text_.size() - before;
  }

  void writeValue(const char* value) {
    text_ += "=\"";
    appendEscaped(text_, value, true);
    text_ += '"';
  }

  void writeText(const apr_text_header& header) {
    for (const apr_text* part = header.first; part != nullptr; part = part->next) {
      appendEscaped(text_, part->text, false);
    }
  }

  const apr_array_header_t* namespaces_;
  std::set<int> used_;
  std::set<std::string_view> names_;
  std::string text_;
  size_t nameSize_ = 0;
};

}  // namespace

Result<std::string> elementText(const apr_xml_elem* element, const apr_array_header_t* namespaces,
                                apr_pool_t* pool) {
  Writer writer(namespaces);
  writer.collect(element);
  if (!writer.isWellFormed(pool)) return Error{"a name is ill-formed", 0};
  writer.write(element, nullptr);
  return writer.take();
}

}  // namespace tessel
