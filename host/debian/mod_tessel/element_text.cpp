#include "host/debian/mod_tessel/element_text.h"

#include <set>

#include "host/debian/mod_tessel/property_values.h"
#include "platform/xml/element_check.h"

namespace tessel {

namespace {

// With white space that a reader would take for blanks.
void appendAttributeValue(std::string& text, std::string_view bytes) {
  text += '"';
  for (const char& c : bytes) {
    switch (c) {
      case '"':
        text += "&quot;";
        break;
      case '\t':
        text += "&#9;";
        break;
      case '\n':
        text += "&#10;";
        break;
      default:
        appendEscapedText(text, {&c, 1});
    }
  }
  text += '"';
}

class Writer {
 public:
  explicit Writer(const apr_array_header_t* namespaces) : namespaces_(namespaces) {}

  // Notes the namespaces that the text will need, each once: a client may repeat a long one
  // thousands of times. False when the element is too deep for write().
  bool collect(const apr_xml_elem* element, int depth) {
    if (depth > kDeepestElement) return false;
    add(element->ns);
    for (const apr_xml_attr* attribute = element->attr; attribute != nullptr;
         attribute = attribute->next) {
      add(attribute->ns);
    }
    for (const apr_xml_elem* child = element->first_child; child != nullptr; child = child->next) {
      if (!collect(child, depth + 1)) return false;
    }
    return true;
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
      text_ += '=';
      appendAttributeValue(text_, attribute->value);
    }
    // The parser hands a language down to all that it is the language of.
    if (element->lang != nullptr &&
        (language == nullptr || element->lang != std::string_view(language))) {
      text_ += " xml:lang=";
      appendAttributeValue(text_, element->lang);
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
  // As it stands in an attribute.
  const char* uri(int number) const { return APR_XML_GET_URI_ITEM(namespaces_, number); }

  void add(int number) {
    if (number >= 0) used_.insert(number);
  }

  void writeName(int number, const char* name) {
    const size_t before = text_.size();
    if (number >= 0) text_ += "ns" + std::to_string(number) + ":";
    text_ += name;
    nameSize_ = text_.size() - before;
  }

  void writeText(const apr_text_header& header) {
    for (const apr_text* part = header.first; part != nullptr; part = part->next) {
      appendEscapedText(text_, part->text);
    }
  }

  const apr_array_header_t* namespaces_;
  std::set<int> used_;
  std::string text_;
  size_t nameSize_ = 0;
};

}  // namespace

Result<std::string> elementText(const apr_xml_elem* element, const apr_array_header_t* namespaces) {
  Writer writer(namespaces);
  if (!writer.collect(element, 1)) return Error{"it is nested too deep", 0};
  writer.write(element, nullptr);
  std::string text = writer.take();
  if (!ElementCheck().isForAll(text)) return Error{"it is not well-formed by itself", 0};
  return text;
}

Result<std::string> elementText(std::string_view xml, apr_pool_t* pool) {
  apr_xml_doc* document = nullptr;
  apr_xml_parser* parser = apr_xml_parser_create(pool);
  const bool isFed = apr_xml_parser_feed(parser, xml.data(), xml.size()) == APR_SUCCESS;
  const bool isDone = apr_xml_parser_done(parser, &document) == APR_SUCCESS;
  if (!isFed || !isDone) return Error{"it is ill-formed", 0};
  return elementText(document->root, document->namespaces);
}

}  // namespace tessel
