// What a client asks about the list of shares, and the answer: name of a share 0xFF body.
#include <apr_xml.h>

#include <algorithm>
#include <string>
#include <utility>

#include "fuzz/fuzz.h"
#include "host/debian/mod_tessel/element_text.h"
#include "host/debian/mod_tessel/property_answer.h"
#include "host/debian/mod_tessel/property_request.h"
#include "platform/base/percent_encoding.h"
#include "platform/base/text.h"

using namespace tessel;  // NOLINT(google-build-using-namespace)
using fuzz::require;

namespace {

apr_xml_doc* parsed(apr_pool_t* pool, std::string_view xml) {
  apr_xml_doc* document = nullptr;
  apr_xml_parser* parser = apr_xml_parser_create(pool);
  const bool fed = apr_xml_parser_feed(parser, xml.data(), xml.size()) == APR_SUCCESS;
  return apr_xml_parser_done(parser, &document) == APR_SUCCESS && fed ? document : nullptr;
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

// Every element of the document becomes a property that a client has set: its text must stand for
// itself in any answer.
std::vector<Property> settable(const apr_xml_elem* element, const apr_xml_doc& document,
                               apr_pool_t* pool) {
  std::vector<Property> properties;
  const auto text = elementText(element, document.namespaces, pool);
  if (!text) return properties;
  const apr_xml_doc* alone = parsed(pool, *text);
  require(alone != nullptr && std::string_view(alone->root->name) == element->name);
  const auto again = elementText(alone->root, alone->namespaces, pool);
  require(again && textOf(alone->root) == textOf(element));
  const bool hasNameSpace = element->ns != APR_XML_NS_NONE;
  properties.push_back({hasNameSpace ? APR_XML_GET_URI_ITEM(document.namespaces, element->ns) : "",
                        element->name, *text});
  return properties;
}

void check(const PropertyRequest& asked, const std::string& name,
           const std::vector<Property>& properties, apr_pool_t* pool) {
  const Lock lock{
      "00000000-0000-4000-8000-000000000000", "/f", true, true, false, "<o/>", "u", 0, 9};
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
  const apr_xml_doc* document = parsed(pool, xml);
  require(document != nullptr);
  const Names names = checkAnswer(*document, name);
  require(std::adjacent_find(names.begin(), names.end()) == names.end() ||
          asked.kind == PropertyRequest::Kind::All);
  if (asked.kind != PropertyRequest::Kind::Some) return;
  Names wanted;
  for (const PropertyName& property : asked.wanted) {
    wanted.emplace_back(property.nameSpace, property.name);
  }
  std::sort(wanted.begin(), wanted.end());
  require(names == wanted);
}

std::string responseFor(PropertyAnswer& answer, ListedItem item, const std::string& href) {
  item.href = href;
  std::string text;
  answer.appendResponse(text, item);
  require(text.find(href) != std::string::npos);
  return text.replace(text.find(href), href.size(), "");
}

// The second of two ordinary files is answered for by what was learnt of the first, unless its name
// is very long: the answers must not differ.
void checkPattern(const PropertyRequest& asked, bool isCollection) {
  PropertyAnswer answer(asked, 0);
  ListedItem item;
  item.isCollection = isCollection;
  item.contentType = "text/plain";
  item.status.size = 1;
  (void)responseFor(answer, item, "/first");
  item.contentType = "a/b;c=\"&\"";
  item.status.size = 1234567;
  item.status.mode = S_IXUSR;
  item.status.modified = 1'700'000'000'123'456'789;
  item.status.identity.birth = -3;
  require(responseFor(answer, item, "/second") ==
          responseFor(answer, item, "/" + std::string(10'000, 'x')));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  require(apr_initialize() == APR_SUCCESS);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view body = fuzz::text(data, size);
  const std::string name(fuzz::takeField(body));
  apr_pool_t* pool = nullptr;
  require(apr_pool_create(&pool, nullptr) == APR_SUCCESS);
  const apr_xml_doc* document = parsed(pool, body);
  if (document != nullptr) {
    const std::vector<Property> properties = settable(document->root, *document, pool);
    PropertyRequest all;
    check(all, name, properties, pool);
    if (const auto asked = propertyRequest(document, pool)) {
      check(*asked, name, {}, pool);
      checkPattern(*asked, false);
      checkPattern(*asked, true);
    }
  }
  apr_pool_destroy(pool);
  return 0;
}
