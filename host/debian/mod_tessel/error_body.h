// What a browser shows when something did not work: a page like the others. Whoever does not ask
// for HTML, as no WebDAV client does, gets the answers of Apache and mod_dav as they are.
#pragma once

#include <httpd.h>

namespace tessel {

// Called when an error's answer is about to be made. `prefix` is the location at which shares are
// served.
void setErrorBody(request_rec* request, const char* prefix);

}  // namespace tessel
