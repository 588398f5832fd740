// The body of a PROPFIND (RFC 4918, section 14.20).
#pragma once

#include <apr_xml.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

struct PropertyName {
  std::string nameSpace;  // as it stands in an attribute of XML, which is how Apache hands it over
  std::string name;
  bool operator<(const PropertyName& other) const {
    return std::tie(nameSpace, name) < std::tie(other.nameSpace, other.name);
  }
};

// What a PROPFIND asks for.
struct PropertyRequest {
  enum class Kind { All, Names, Some } kind = Kind::All;
  std::vector<PropertyName> wanted;  // each once; with All, those that are wanted besides
};

// Names in one request, and the bytes of all of them: an answer repeats those that a file lacks for
// each file.
inline constexpr std::size_t kMostNames = 1000;
inline constexpr std::size_t kMostBytesOfNames = 65536;
// Of their namespaces, counted with each name, since each has its own copy of it here.
inline constexpr std::size_t kMostBytesOfNameSpaces = 1048576;

// What the document asks for. No document asks for everything. An Error has the status of HTTP to
// answer with: 400 when it is no propfind element with something in it that is understood, or when
// its names are ill-formed; 413 beyond the bounds.
Result<PropertyRequest> propertyRequest(const apr_xml_doc* document);

// Appends an empty element of this name, which brings its namespace with it. It need not be
// well-formed: Apache's parser does not look at what follows a prefix ("a:1", "a:b:c"), nor at
// prefixes that begin with "xml", which it leaves in the name.
void appendElement(std::string& text, std::string_view nameSpace, std::string_view name);

}  // namespace tessel
