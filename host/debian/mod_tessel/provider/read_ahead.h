// mod_dav asks for an upload's body in pieces of 2 kB; this asks for more on its behalf, which
// spares most of the passes through Apache's filters.
#pragma once

#include <httpd.h>

namespace tessel {

void registerReadAhead();
void readAhead(request_rec* request);

}  // namespace tessel
