// The strong validator of a file (RFC 9110, section 8.8.3): its size, when it was last written, and
// when it came into being, to the nanosecond. The last tells apart what two uploads with the same
// time (X-OC-Mtime) have left.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <string>

#include "host/debian/mod_tessel/files/status.h"

namespace tessel {

inline void appendETag(std::string& text, const FileStatus& status) {
  std::array<char, 64> digits;
  const std::int64_t unique = status.identity.birth != 0
                                  ? status.identity.birth
                                  : static_cast<std::int64_t>(status.identity.inode);
  char* end = digits.data();
  *end++ = '"';
  for (const std::int64_t part :
       {static_cast<std::int64_t>(status.size), status.modified, unique}) {
    end =
        std::to_chars(end, digits.data() + digits.size(), static_cast<std::uint64_t>(part), 16).ptr;
    *end++ = '-';
  }
  end[-1] = '"';
  text.append(digits.data(), end);
}

inline std::string etagOf(const FileStatus& status) {
  std::string text;
  appendETag(text, status);
  return text;
}

}  // namespace tessel
