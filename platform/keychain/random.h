// Random values from the system's generator.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/base/secret.h"

namespace tessel {

// A number that is equally likely to be any but 0; none when the system has no random numbers.
std::optional<std::uint32_t> randomNonZeroNumber();

// The text of a new random UUID (RFC 4122, version 4), 36 characters in upper case; none when the
// system has no random numbers.
std::optional<Secret> randomUUID();

}  // namespace tessel
