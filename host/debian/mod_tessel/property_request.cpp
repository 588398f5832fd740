#include "host/debian/mod_tessel/property_request.h"

#include <cstring>
#include <string>
#include <vector>

namespace tessel {

namespace {

bool isDAV(const apr_xml_elem* element, const char* name) {
  return element->ns == APR_XML_NS_DAV_ID && std::strcmp(element->name, name) == 0;
}

// Whether the answer can repeat these names. The parser does not look at what follows a prefix, and
// lets "a:1" and "a:b:c" through.
bool areWellFormed(const std::vector<PropertyName>& names, apr_pool_t* pool) {
  std::string tags = "<names>";
  for (const PropertyName& property : names) {
    if (property.name.find(':') != std::string::npos ||
        property.nameSpace.find_first_of("\t\n\r") != std::string::npos) {
      return false;
    }
    tags += "<" + property.name + "/>";
  }
  tags += "</names>";
  apr_xml_parser* parser = apr_xml_parser_create(pool);
  const bool fed = apr_xml_parser_feed(parser, tags.data(), tags.size()) == APR_SUCCESS;
  return apr_xml_parser_done(parser, nullptr) == APR_SUCCESS && fed;
}

}  // namespace

std::optional<PropertyRequest> propertyRequest(const apr_xml_doc* document, apr_pool_t* pool) {
  PropertyRequest asked;
  if (document == nullptr) return asked;
  if (!isDAV(document->root, "propfind")) return std::nullopt;
  for (const apr_xml_elem* form = document->root->first_child; form != nullptr; form = form->next) {
    if (isDAV(form, "allprop")) return asked;
    if (isDAV(form, "propname")) {
      asked.namesOnly = true;
      return asked;
    }
    if (!isDAV(form, "prop")) continue;
    auto& wanted = asked.wanted.emplace();
    for (const apr_xml_elem* property = form->first_child; property != nullptr;
         property = property->next) {
      const bool hasNameSpace = property->ns != APR_XML_NS_NONE;
      wanted.push_back(
          {hasNameSpace ? APR_XML_GET_URI_ITEM(document->namespaces, property->ns) : "",
           property->name});
    }
    if (!areWellFormed(wanted, pool)) return std::nullopt;
    return asked;
  }
  return std::nullopt;
}

}  // namespace tessel
