// Answers PROPFIND, for folders and files of shares and for the list of all shares: one walk
// through the folder, one question to what is kept of it, and an answer that is sent while it is
// made.
#pragma once

#include <httpd.h>

#include "host/debian/mod_tessel/share_request.h"

namespace tessel {

int answerPropfind(request_rec* request, ShareRequest& share);

}  // namespace tessel
