// Random values, for keys as well. They fail when the system has no random numbers.
#pragma once

#include <cstdint>

#include "platform/base/result.h"
#include "platform/base/secret.h"

namespace tessel {

// A number that is equally likely to be any but 0.
Result<std::uint32_t> randomNonZeroNumber();

// The text of a new random UUID (RFC 4122, version 4), 36 characters in upper case.
Result<Secret> randomUUID();

}  // namespace tessel
