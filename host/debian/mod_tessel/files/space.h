// How much room there is where a folder lies.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/files/file_descriptor.h"

namespace tessel {

// In bytes (RFC 4331).
struct Space {
  std::uint64_t available = 0;
  std::uint64_t used = 0;
};

// None when the system does not tell.
std::optional<Space> spaceOf(const FileDescriptor& folder);

}  // namespace tessel
