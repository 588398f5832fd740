// What clients ask, what they and others have stored, and the answer: name of a share 0xFF body.
#include <apr_xml.h>
#include <expat.h>

#include <algorithm>
#include <string>
#include <utility>

#include "fuzz/fuzz.h"
#include "host/debian/mod_tessel/element_text.h"
#include "host/debian/mod_tessel/property_answer.h"
#include "host/debian/mod_tessel/property_request.h"
#include "platform/base/percent_encoding.h"
#include "platform/base/text.h"
#include "platform/xml/element_check.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {

apr_xml_doc* parsed(apr_pool_t* pool, std::string_view xml) {
  apr_xml_doc* document = nullptr;
  apr_xml_parser* parser = apr_xml_parser_create(pool);
  const bool fed = apr_xml_parser_feed(parser, xml.data(), xml.size()) == APR_SUCCESS;
  return apr_xml_parser_done(parser, &document) == APR_SUCCESS && fed ? document : nullptr;
}

// For a reader that knows namespaces, and puts this character between one and a name.
void requireReadable(const std::string& xml, char separator) {
  XML_Parser parser = XML_ParserCreateNS(nullptr, separator);
  require(XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE) == XML_STATUS_OK);
  XML_ParserFree(parser);
}

const apr_xml_elem* childNamed(const apr_xml_elem* parent, std::string_view name) {
  const apr_xml_elem* child = parent->first_child;
  while (child != nullptr && child->name != name) child = child->next;
  return child;
}

std::string textOf(const apr_xml_elem* element) {
  std::string text;
  for (const apr_text* part = element->first_cdata.first; part != nullptr; part = part->next) {
    text += part->text;
  }
  return text;
}

using Names = std::vector<std::pair<std::string, std::string>>;

// Checks what the answer says about the one file, and returns the properties in it.
Names checkAnswer(const apr_xml_doc& answer, const std::string& name) {
  Names names;
  const apr_xml_elem* response = childNamed(answer.root, "response");
  require(response != nullptr && response->next == nullptr);
  for (const auto* stat = childNamed(response, "href")->next; stat != nullptr; stat = stat->next) {
    const apr_xml_elem* property = childNamed(stat, "prop")->first_child;
    for (; property != nullptr; property = property->next) {
      const bool hasNameSpace = property->ns != APR_XML_NS_NONE;
      names.emplace_back(hasNameSpace ? APR_XML_GET_URI_ITEM(answer.namespaces, property->ns) : "",
                         property->name);
      const bool isName =
          names.back() == std::pair<std::string, std::string>{"DAV:", "displayname"};
      if (isName && !textOf(property).empty()) require(textOf(property) == name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

// What comes of an element when a client sets it as a property: its text must stand for itself.
void addSettable(const apr_xml_elem* element, const apr_xml_doc& document, apr_pool_t* pool,
                 std::vector<Property>& properties) {
  const auto text = elementText(element, document.namespaces);
  if (!text) return;
  requireReadable(*text, '}');
  const apr_xml_doc* alone = parsed(pool, *text);
  require(alone != nullptr && std::string_view(alone->root->name) == element->name);
  const auto again = elementText(*text, pool);
  require(again && textOf(alone->root) == textOf(element));
  const bool hasNameSpace = element->ns != APR_XML_NS_NONE;
  const Property made{hasNameSpace ? APR_XML_GET_URI_ITEM(document.namespaces, element->ns) : "",
                      element->name, *text};
  const bool isKnown = std::any_of(
      properties.begin(), properties.end(),
      [&made](const Property& one) { return one.space == made.space && one.name == made.name; });
  if (!isKnown) properties.push_back(made);
}

// Of the elements that a request may ask for, and of the whole.
std::vector<Property> settable(const apr_xml_doc& document, apr_pool_t* pool) {
  std::vector<Property> properties;
  const apr_xml_elem* form = document.root->first_child;
  for (; form != nullptr; form = form->next) {
    const apr_xml_elem* property = form->first_child;
    for (; property != nullptr; property = property->next) {
      addSettable(property, document, pool, properties);
    }
  }
  addSettable(document.root, document, pool, properties);
  return properties;
}

// The answer about one file with these properties and a lock of this owner.
std::string answerTo(const PropertyRequest& asked, const std::string& name,
                     const std::vector<Property>& properties, const std::string& owner) {
  const Lock lock{
      "00000000-0000-4000-8000-000000000000", "/f", true, true, false, owner, "u", 0, 9};
  const Lock* const locks = &lock;
  const std::string href = "/" + percentEncoded(name);
  ListedItem item;
  item.href = href;
  item.displayName = name;
  item.contentType = "a/b<";
  item.space = Space{1, 2};
  item.properties = properties;
  item.locks = {&locks, 1};
  PropertyAnswer answer(asked, 0);
  std::string xml;
  answer.appendStart(xml);
  answer.appendResponse(xml, item);
  PropertyAnswer::appendEnd(xml);
  require(isUTF8(xml));
  requireReadable(xml, '\1');
  return xml;
}

void check(const PropertyRequest& asked, const std::string& name,
           const std::vector<Property>& properties, apr_pool_t* pool) {
  const apr_xml_doc* document = parsed(pool, answerTo(asked, name, properties, "<o/>"));
  require(document != nullptr);
  const Names names = checkAnswer(*document, name);
  require(std::adjacent_find(names.begin(), names.end()) == names.end());
  if (asked.kind != PropertyRequest::Kind::Some) return;
  Names wanted;
  for (const PropertyName& property : asked.wanted) {
    wanted.emplace_back(property.nameSpace, property.name);
  }
  std::sort(wanted.begin(), wanted.end());
  require(names == wanted);
}

// As an older version, or whoever has damaged the database, may have stored it.
void checkStored(const std::string& bytes, apr_pool_t* pool) {
  const std::vector<Property> stored{
      {bytes, "n", "<n/>"}, {"", bytes, bytes}, {"urn:x", "n", bytes}, {"", "kept", "<kept/>"}};
  PropertyRequest asked;
  for (const auto kind : {PropertyRequest::Kind::All, PropertyRequest::Kind::Names}) {
    asked.kind = kind;
    require(answerTo(asked, "f", stored, bytes).find("<kept/>") != std::string::npos);
  }
  asked.kind = PropertyRequest::Kind::Some;
  asked.wanted = {{"urn:x", "n"}, {"DAV:", "lockdiscovery"}};
  (void)answerTo(asked, "f", stored, bytes);
  if (const auto owner = elementText(bytes, pool)) {
    require(answerTo(asked, "f", {}, *owner).find(*owner) != std::string::npos);
  }
}

std::string responseFor(PropertyAnswer& answer, ListedItem item, const std::string& href) {
  item.href = href;
  std::string text;
  answer.appendResponse(text, item);
  require(text.find(href) != std::string::npos);
  return text.replace(text.find(href), href.size(), "");
}

// An ordinary file is answered for by what was learnt of one that has the same properties, unless
// its name is very long: the answers must not differ, whichever files come before.
void checkPatterns(const PropertyRequest& asked) {
  PropertyAnswer answer(asked, 0);
  const std::string longName = "/" + std::string(5'000, 'x');
  constexpr unsigned kPatterns = 32;
  for (unsigned i = 0; i < 2 * kPatterns; ++i) {
    const std::int64_t number = std::int64_t{1'234'567} * i;
    ListedItem item;
    item.isCollection = (i & 1U) != 0;
    item.isFile = (i & 2U) != 0;
    item.isVirtual = (i & 4U) != 0;
    if ((i & 8U) != 0) item.contentType = i < kPatterns ? "text/plain" : "a/b;c=\"&\"";
    if ((i & 16U) != 0) item.space = Space{i, i + 1};
    item.status.size = number;
    item.status.mode = i < kPatterns ? 0 : S_IXUSR;
    item.status.modified = 1'700'000'000'123'456'789 * (i % 3);
    item.status.identity.birth = -number;
    require(responseFor(answer, item, "/short") == responseFor(answer, item, longName));
  }
}

// The parser has a bound of its own, or not: then a request has room for this many.
void checkDepth(apr_pool_t* pool) {
  apr_xml_elem* element = nullptr;
  for (int depth = 1; depth <= 200'000; ++depth) {
    auto* outer = static_cast<apr_xml_elem*>(apr_pcalloc(pool, sizeof(apr_xml_elem)));
    outer->name = "a";
    outer->ns = APR_XML_NS_NONE;
    outer->first_child = outer->last_child = element;
    element = outer;
    if (depth == kDeepestElement) require(bool(elementText(element, nullptr)));
  }
  require(!elementText(element, nullptr));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  require(apr_initialize() == APR_SUCCESS);
  apr_pool_t* pool = nullptr;
  require(apr_pool_create(&pool, nullptr) == APR_SUCCESS);
  checkDepth(pool);
  apr_pool_destroy(pool);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view body = fuzz::text(data, size);
  const std::string name(fuzz::takeField(body));
  apr_pool_t* pool = nullptr;
  require(apr_pool_create(&pool, nullptr) == APR_SUCCESS);
  const apr_xml_doc* document = parsed(pool, body);
  if (document != nullptr) {
    const std::vector<Property> properties = settable(*document, pool);
    PropertyRequest asked;
    check(asked, name, properties, pool);
    asked.kind = PropertyRequest::Kind::Names;
    check(asked, name, properties, pool);
    if (const auto request = propertyRequest(document)) {
      check(*request, name, {}, pool);
      check(*request, name, properties, pool);
      checkPatterns(*request);
    }
  }
  checkStored(std::string(body), pool);
  apr_pool_destroy(pool);
  return 0;
}
