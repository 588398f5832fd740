// Answers PROPFIND, for folders and files of shares and for the list of all shares: one walk
// through the folder, one question to what is kept of it, and an answer that goes out, if it is
// long, while it is made.
#pragma once

#include <httpd.h>

#include <string_view>

#include "host/debian/mod_tessel/share_request.h"

namespace tessel {

int answerPropfind(request_rec* request, ShareRequest& share);

// Of the server's root, in which there is the location at which shares are served and nothing else.
int answerEntrancePropfind(request_rec* request, std::string_view prefix);

}  // namespace tessel
