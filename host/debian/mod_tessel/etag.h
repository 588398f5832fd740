// The strong validator of a file (RFC 9110, section 8.8.3): its size, when it was last written, and
// how long before that it came into being, to the nanosecond. The last tells apart what two uploads
// with the same time (X-OC-Mtime) have left.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <string>

#include "host/debian/mod_tessel/files/status.h"

namespace tessel {

constexpr std::size_t kMostETagBytes = 64;

// Writes it where there is room for so many bytes, and returns its end.
inline char* writeETag(char* end, const FileStatus& status) {
  const auto modified = static_cast<std::uint64_t>(status.modified);
  const auto birth = static_cast<std::uint64_t>(status.identity.birth);
  *end++ = '"';
  for (const std::uint64_t part : {static_cast<std::uint64_t>(status.size), modified,
                                   birth != 0 ? modified - birth : status.identity.inode}) {
    end = std::to_chars(end, end + 16, part, 16).ptr;
    *end++ = '-';
  }
  end[-1] = '"';
  return end;
}

inline std::string etagOf(const FileStatus& status) {
  std::array<char, kMostETagBytes> text;
  return {text.data(), writeETag(text.data(), status)};
}

}  // namespace tessel
