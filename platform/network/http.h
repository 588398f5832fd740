// One HTTP request at a time, as a browser without memory would send it: no cache, cookies,
// credentials or proxy, whatever the environment and the user's files say, and no time-out beyond
// the client library's own limit for connecting (300 seconds).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/base/result.h"

namespace tessel {

// Sends one GET for an http or https URL, reads the whole response and returns its status, whatever
// it is; a redirect is not followed. A server's certificate must be valid under the system's
// anchors for the URL's host, unless that host is `anyCertificateHost` (in any case of letters),
// for which every certificate will do. The error is the client library's description of why there
// is no whole response. A URL that carries credentials is refused. The process's environment loses
// SSLKEYLOGFILE, so that no other thread may read it meanwhile.
Result<std::int64_t> httpGet(const std::string& url, const std::string& anyCertificateHost);

struct HTTPQuestion {
  std::string url;
  // The address and port to connect to, as "127.0.0.1:8443" or "[::1]:8443", whatever the URL's
  // host and port.
  std::string server;
  std::chrono::milliseconds limit;  // for all of it
};

struct HTTPAnswer {
  std::int64_t status = 0;
  // What the server has shown of its certificate and chain, in PEM, its own first. None without
  // TLS.
  std::vector<std::string> certificates;
};

// The same as a look at the server: every certificate will do, since the caller judges it.
Result<HTTPAnswer> httpAsk(const HTTPQuestion& question);

}  // namespace tessel
