// What makes an answer a page of ours for browsers: unlike a page that somebody has stored, it may
// have its own style, and nothing else.
#pragma once

#include <httpd.h>

namespace tessel {

// Puts the headers of a page into the table that goes out, and keeps the policy for files from
// being set in their place.
void setPageHeaders(request_rec* request, apr_table_t* headers);

// Whether the client asks for HTML by name, as browsers do and nothing else does.
bool asksForHTML(const request_rec* request);

}  // namespace tessel
