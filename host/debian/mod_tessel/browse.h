// Answers GET and HEAD of folders and of the list of shares with pages.
#pragma once

#include <httpd.h>

#include "host/debian/mod_tessel/share_request.h"

namespace tessel {

// Of a folder that was found. Without its last slash it redirects, since the links of its page
// begin there.
int answerFolderPage(request_rec* request, const ShareRequest& share);

// The shares whose folders can be read, or how to connect ("?connect").
int answerShareListPage(request_rec* request, const ShareRequest& share);

}  // namespace tessel
