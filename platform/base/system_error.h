// The system's reasons as errors.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/base/result.h"

namespace tessel {

// "WHAT: REASON" with the text of strerror(3) for an errno(3) value, which is the error's code. To
// be called before anything else changes errno.
inline Error systemError(const std::string& what, int code = errno) {
  return Error{what + ": " + std::strerror(code), code};
}

}  // namespace tessel
