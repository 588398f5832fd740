// Looks at the running Apache from outside, for the report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tessel {

// Prints and returns the running processes whose names begin with "httpd", a line each, after ps's
// column headings.
std::string httpdProcessString();

// The HTTP status of a GET for the root of the server at this port of 127.0.0.1 or else of
// `serverName`, the name of the identity, for which every certificate will do. Before an identity
// has been looked up there is no such name, and the host is "(null)". 0, after two lines that say
// why, when there is no response.
std::int64_t httpResponseOnPort(const std::string& port, bool usingSSL, bool usingLocalhost,
                                const std::optional<std::string>& serverName);

}  // namespace tessel
