// The body of a PROPFIND (RFC 4918, section 14.20).
#pragma once

#include <apr_xml.h>

#include <optional>

#include "host/debian/mod_tessel/share_listing.h"

namespace tessel {

// What the document asks for. No document asks for everything. None when it is no propfind element
// with something in it that is understood, or when its namespaces are ill-formed.
std::optional<PropertyRequest> propertyRequest(const apr_xml_doc* document, apr_pool_t* pool);

}  // namespace tessel
