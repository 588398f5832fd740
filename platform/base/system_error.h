// The system's reasons as errors, and what they say.
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

// Whether an errno(3) value of a look-up says that nothing is there under that path. All others say
// that it is not known: the process may have no descriptor left, the disk or a file server may
// fail.
inline bool isAbsence(int code) {
  return code == ENOENT || code == ENOTDIR || code == ENAMETOOLONG;
}

}  // namespace tessel
