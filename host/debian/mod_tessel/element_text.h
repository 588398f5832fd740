// An element of a request's XML as a text that stands for itself: with the namespaces and the
// language that it has there, so that it can be put into any answer as it is.
#pragma once

#include <apr_xml.h>

#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace tessel {

// `namespaces` are those of its document. An Error when it would not be well-formed by itself
// (platform/xml/element_check.h), which Apache's parser does not look at.
Result<std::string> elementText(const apr_xml_elem* element, const apr_array_header_t* namespaces);
// The same of an element that is a text already, for which the pool's memory is used.
Result<std::string> elementText(std::string_view xml, apr_pool_t* pool);

}  // namespace tessel
