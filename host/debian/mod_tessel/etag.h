// The strong validator of a file (RFC 9110, section 8.8.3): its size, when it was last written, and
// when it came into being, to the nanosecond. The last tells apart what two uploads with the same
// time (X-OC-Mtime) have left.
#pragma once

#include <cstdint>
#include <string>

#include "host/debian/mod_tessel/files/status.h"

namespace tessel {

inline void appendETag(std::string& text, const FileStatus& status) {
  const std::int64_t unique = status.identity.birth != 0
                                  ? status.identity.birth
                                  : static_cast<std::int64_t>(status.identity.inode);
  text += '"';
  for (const std::int64_t part :
       {static_cast<std::int64_t>(status.size), status.modified, unique}) {
    if (text.back() != '"') text += '-';
    char digits[16];  // NOLINT(modernize-avoid-c-arrays)
    int count = 0;
    auto rest = static_cast<std::uint64_t>(part);
    do {
      digits[count++] = "0123456789abcdef"[rest & 0xFU];
      rest >>= 4U;
    } while (rest != 0);
    while (count > 0) text += digits[--count];
  }
  text += '"';
}

inline std::string etagOf(const FileStatus& status) {
  std::string text;
  appendETag(text, status);
  return text;
}

}  // namespace tessel
