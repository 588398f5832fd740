#include "platform/xml/element_check.h"

#include <expat.h>

#include <algorithm>
#include <limits>
#include <new>

namespace tessel {

namespace {

struct Progress {
  XML_Parser parser;
  int depth = 0;
  bool isRefused = false;
};

void refuse(void* data) {
  auto* progress = static_cast<Progress*>(data);
  progress->isRefused = true;
  XML_StopParser(progress->parser, XML_FALSE);
}

bool isInURIs(char c) {
  constexpr std::string_view kOthers = "\"<>\\^`{|}\x7F";
  return static_cast<unsigned char>(c) > ' ' && kOthers.find(c) == std::string_view::npos;
}

bool isInPlainText(char c) {
  if (c == '\t' || c == '\n') return true;
  return c >= ' ' && c < '\x7F' && c != '<' && c != '&' && c != '>';
}

bool isPlainName(std::string_view name) {
  const auto isLetter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
  };
  return !name.empty() && isLetter(name.front()) &&
         std::all_of(name.begin(), name.end(), [&](char c) {
           return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
         });
}

bool take(std::string_view& text, std::string_view start) {
  if (!text.starts_with(start)) return false;
  text.remove_prefix(start.size());
  return true;
}

// Whether the text is <ns0:name xmlns:ns0="uri">text</ns0:name>, the prefix having any number, or
// the same without a namespace, all of ASCII. That is well-formed, is most of what clients set, and
// is seen in a tenth of the time that a parser takes.
bool isPlain(std::string_view text) {
  constexpr std::string_view kPrefix = "ns";
  // The two that no prefix may stand for are among these.
  constexpr std::string_view kReserved = "http://www.w3.org/";
  const std::string_view tag = text.substr(1, text.find_first_of(" />", 1) - 1);
  text.remove_prefix(1 + tag.size());
  const size_t colon = tag.find(':');
  if (!isPlainName(tag.substr(colon + 1))) return false;
  if (colon != std::string_view::npos) {
    const std::string_view prefix = tag.substr(0, colon);
    if (!prefix.starts_with(kPrefix) || !isPlainName(prefix)) return false;
    if (!take(text, " xmlns:") || !take(text, prefix) || !take(text, "=\"")) return false;
    const std::string_view uri = text.substr(0, text.find('"'));
    text.remove_prefix(uri.size());
    if (!take(text, "\"") || uri.empty() || uri.starts_with(kReserved)) return false;
    if (!std::all_of(uri.begin(), uri.end(),
                     [](char c) { return isInPlainText(c) && isInURIs(c); })) {
      return false;
    }
  }
  if (text == "/>") return true;
  if (!take(text, ">")) return false;
  const std::string_view content = text.substr(0, text.find('<'));
  text.remove_prefix(content.size());
  return take(text, "</") && take(text, tag) && text == ">" &&
         std::all_of(content.begin(), content.end(), isInPlainText);
}

void begin(void* data, const XML_Char* /*name*/, const XML_Char** /*attributes*/) {
  if (++static_cast<Progress*>(data)->depth > kDeepestElement) refuse(data);
}

void end(void* data, const XML_Char* /*name*/) { --static_cast<Progress*>(data)->depth; }

void declare(void* data, const XML_Char* /*prefix*/, const XML_Char* name) {
  const std::string_view uri = name == nullptr ? "" : name;
  if (!std::all_of(uri.begin(), uri.end(), isInURIs)) refuse(data);
}

// What may stand at the start of a document and nowhere else.
void beginXML(void* data, const XML_Char* /*version*/, const XML_Char* /*encoding*/,
              int /*standalone*/) {
  refuse(data);
}

void beginType(void* data, const XML_Char* /*name*/, const XML_Char* /*system*/,
               const XML_Char* /*public*/, int /*isInternal*/) {
  refuse(data);
}

}  // namespace

void ElementCheck::End::operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }

bool ElementCheck::isWellFormed(std::string_view bytes) { return parse(bytes, false); }

bool ElementCheck::isForAll(std::string_view bytes) { return parse(bytes, true); }

bool ElementCheck::parse(std::string_view bytes, bool isForAll) {
  // By the first two bytes expat tells UTF-16, whatever encoding it is told.
  if (bytes.size() < 2 || bytes[0] != '<' || bytes[1] == '\0') return false;
  if (bytes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return false;
  if (isPlain(bytes)) return true;
  if (!parser_) {
    // Namespaces are told apart from names by what cannot be in them.
    parser_.reset(XML_ParserCreateNS("UTF-8", '\1'));
    if (!parser_) throw std::bad_alloc();
  } else if (XML_ParserReset(parser_.get(), "UTF-8") != XML_TRUE) {
    return false;
  }
  Progress progress{parser_.get()};
  XML_SetUserData(parser_.get(), &progress);
  XML_SetElementHandler(parser_.get(), begin, end);
  if (isForAll) XML_SetStartNamespaceDeclHandler(parser_.get(), declare);
  XML_SetXmlDeclHandler(parser_.get(), beginXML);
  XML_SetStartDoctypeDeclHandler(parser_.get(), beginType);
  const bool isParsed = XML_Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()),
                                  XML_TRUE) == XML_STATUS_OK;
  if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
  return isParsed && !progress.isRefused;
}

}  // namespace tessel
