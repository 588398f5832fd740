// Why Apache has not started, for the administrator.
#pragma once

#include <string>

namespace tessel {

// What of Apache's words on standard error matters, and when the port is taken by another program,
// which one, in lines without a newline at the end.
std::string failureReason(const std::string& errors, const std::string& port);

}  // namespace tessel
