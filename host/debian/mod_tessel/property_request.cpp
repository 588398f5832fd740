#include "host/debian/mod_tessel/property_request.h"

#include <cstring>

namespace tessel {

namespace {

constexpr int kBadRequest = 400;
constexpr int kTooLarge = 413;

bool isDAV(const apr_xml_elem* element, const char* name) {
  return element->ns == APR_XML_NS_DAV_ID && std::strcmp(element->name, name) == 0;
}

Status readNames(const apr_xml_doc* document, const apr_xml_elem* list, apr_pool_t* pool,
                 std::vector<PropertyName>& wanted) {
  std::set<PropertyName> known;
  std::set<std::string_view> names;
  size_t bytes = 0;
  size_t bytesOfNameSpaces = 0;
  for (const apr_xml_elem* property = list->first_child; property != nullptr;
       property = property->next) {
    const bool hasNameSpace = property->ns != APR_XML_NS_NONE;
    PropertyName name{hasNameSpace ? APR_XML_GET_URI_ITEM(document->namespaces, property->ns) : "",
                      property->name};
    if (!known.insert(name).second) continue;
    bytes += name.name.size();
    bytesOfNameSpaces += name.nameSpace.size();
    if (known.size() > kMostNames || bytes > kMostBytesOfNames ||
        bytesOfNameSpaces > kMostBytesOfNameSpaces) {
      return Error{"more properties than one request may ask for", kTooLarge};
    }
    if (!isWellFormed(name.nameSpace)) return Error{"a namespace is ill-formed", kBadRequest};
    names.insert(property->name);
    wanted.push_back(std::move(name));
  }
  if (!areWellFormed(names, pool)) return Error{"a name is ill-formed", kBadRequest};
  return {};
}

}  // namespace

bool isWellFormed(std::string_view nameSpace) {
  return nameSpace.find_first_of("\t\n\r") == std::string_view::npos;
}

bool areWellFormed(const std::set<std::string_view>& names, apr_pool_t* pool) {
  std::string tags = "<names>";
  for (const std::string_view name : names) {
    if (name.find(':') != std::string_view::npos) return false;
    tags.append("<").append(name).append("/>");
  }
  tags += "</names>";
  apr_xml_parser* parser = apr_xml_parser_create(pool);
  const bool fed = apr_xml_parser_feed(parser, tags.data(), tags.size()) == APR_SUCCESS;
  return apr_xml_parser_done(parser, nullptr) == APR_SUCCESS && fed;
}

Result<PropertyRequest> propertyRequest(const apr_xml_doc* document, apr_pool_t* pool) {
  PropertyRequest asked;
  if (document == nullptr) return asked;
  if (!isDAV(document->root, "propfind")) return Error{"not a propfind element", kBadRequest};
  const apr_xml_elem* names = nullptr;
  bool isUnderstood = false;
  for (const apr_xml_elem* form = document->root->first_child; form != nullptr; form = form->next) {
    if (isDAV(form, "include") && (!isUnderstood || asked.kind == PropertyRequest::Kind::All)) {
      names = form;
    }
    if (isUnderstood) continue;
    isUnderstood = true;
    if (isDAV(form, "propname")) {
      asked.kind = PropertyRequest::Kind::Names;
    } else if (isDAV(form, "prop")) {
      asked.kind = PropertyRequest::Kind::Some;
      names = form;
    } else {
      isUnderstood = isDAV(form, "allprop");
    }
  }
  if (!isUnderstood) return Error{"nothing that is understood is asked for", kBadRequest};
  if (names != nullptr && asked.kind != PropertyRequest::Kind::Names) {
    if (Status read = readNames(document, names, pool, asked.wanted); !read) return read.error();
  }
  return asked;
}

}  // namespace tessel
