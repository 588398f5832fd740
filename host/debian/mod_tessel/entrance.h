// The root of the server, "/", where whoever was given no more than its name comes in: browsers are
// led to the shares, and WebDAV clients find them listed.
#pragma once

#include <httpd.h>

namespace tessel {

// `prefix` is the location at which shares are served.
int answerEntrance(request_rec* request, const char* prefix);

// OPTIONS of a collection that is no folder, "/" or the list of shares; what is neither that, GET,
// HEAD nor PROPFIND is refused.
int answerOptions(request_rec* request);

}  // namespace tessel
