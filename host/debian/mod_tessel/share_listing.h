// The answer to a PROPFIND of the collection that holds all shares (RFC 4918, sections 9.1 and 13).
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

struct PropertyName {
  std::string nameSpace;  // as it stands in an attribute of XML, which is how Apache hands it over
  std::string name;
};

// What a PROPFIND asks for.
struct PropertyRequest {
  std::optional<std::vector<PropertyName>> wanted;  // none: all that there are
  bool namesOnly = false;
};

struct ListedCollection {
  std::string href;  // percent-encoded, with a slash at both ends
  std::string name;
  std::time_t modified = 0;
};

// The bytes as they stand in a URL between two slashes.
std::string percentEncoded(std::string_view bytes);

// The body of the 207 answer, one response for each collection. Collections have the properties
// resourcetype, getlastmodified and, where XML can hold the name, displayname; others that are
// asked for are not found.
std::string multistatus(const std::vector<ListedCollection>& collections,
                        const PropertyRequest& request);

}  // namespace tessel
