// Writes property lists as XML that every reader of the format takes for the same values.
#pragma once

#include <string>

#include "platform/base/result.h"
#include "platform/property_list/value.h"

namespace tessel {

// The list as UTF-8 text without a document type line, a value a line and indented by tabs; all in
// one line where that alone keeps it within the largest list that is read. An error, which says
// why, when XML has no form for a value in it or the list would be too large or too deep to be read
// again.
Result<std::string> writeXMLPropertyList(const PropertyListNode& root);

}  // namespace tessel
