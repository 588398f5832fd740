// One HTTP request at a time, as a browser without memory would send it: no cache, cookies,
// credentials or proxy, whatever the environment and the user's files say, and no time-out beyond
// the client library's own limit for connecting (300 seconds).
#pragma once

#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace tessel {

// Sends one GET for an http or https URL, reads the whole response and returns its status, whatever
// it is; a redirect is not followed. A server's certificate must be valid under the system's
// anchors for the URL's host, unless that host is `anyCertificateHost` (in any case of letters),
// for which every certificate will do. The error is the client library's description of why there
// is no whole response. A URL that carries credentials is refused. The process's environment loses
// SSLKEYLOGFILE, so that no other thread may read it meanwhile.
Result<std::int64_t> httpGet(const std::string& url, const std::string& anyCertificateHost);

}  // namespace tessel
