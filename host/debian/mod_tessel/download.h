// Answers GET and HEAD of a file of a share with the file that was found and judged, by its
// descriptor. Ranges and conditions are Apache's.
#pragma once

#include <httpd.h>

#include "host/debian/mod_tessel/share_request.h"

namespace tessel {

int answerDownload(request_rec* request, const ShareRequest& share);

}  // namespace tessel
