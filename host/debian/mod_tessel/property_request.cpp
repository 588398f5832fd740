#include "host/debian/mod_tessel/property_request.h"

#include <cstring>
#include <set>

#include "platform/xml/element_check.h"

namespace tessel {

namespace {

constexpr int kBadRequest = 400;
constexpr int kTooLarge = 413;

bool isDAV(const apr_xml_elem* element, const char* name) {
  return element->ns == APR_XML_NS_DAV_ID && std::strcmp(element->name, name) == 0;
}

Status readNames(const apr_xml_doc* document, const apr_xml_elem* list,
                 std::vector<PropertyName>& wanted) {
  std::set<PropertyName> known;
  std::string names = "<names>";
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
    // An attribute that repeats these as they are means blanks.
    if (name.nameSpace.find_first_of("\t\n\r") != std::string::npos) {
      return Error{"a namespace is ill-formed", kBadRequest};
    }
    appendElement(names, name.nameSpace, name.name);
    wanted.push_back(std::move(name));
  }
  names += "</names>";
  if (!ElementCheck().isWellFormed(names)) return Error{"a name is ill-formed", kBadRequest};
  return {};
}

}  // namespace

void appendElement(std::string& text, std::string_view nameSpace, std::string_view name) {
  text += nameSpace.empty() ? "<" : "<p:";
  text += name;
  if (!nameSpace.empty()) text.append(" xmlns:p=\"").append(nameSpace).append("\"");
  text += "/>";
}

Result<PropertyRequest> propertyRequest(const apr_xml_doc* document) {
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
    if (Status read = readNames(document, names, asked.wanted); !read) return read.error();
  }
  return asked;
}

}  // namespace tessel
