// An element of a request's XML as a text that stands for itself: with the namespaces and the
// language that it has there, so that it can be put into any answer as it is.
#pragma once

#include <apr_xml.h>

#include <string>

#include "platform/base/result.h"

namespace tessel {

// `namespaces` are those of its document. An Error when a name in it is ill-formed.
Result<std::string> elementText(const apr_xml_elem* element, const apr_array_header_t* namespaces,
                                apr_pool_t* pool);

}  // namespace tessel
