// The times of files as one number, as far as 64 bits go.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace tessel {

// Nanoseconds since 1970 of a time that the system tells in seconds and nanoseconds (timespec,
// statx_timestamp). Anybody may give a file of theirs any time: one before 1677 or after 2262
// counts as one of those years.
template <typename Time>
std::int64_t nanosecondsOf(const Time& time) {
  constexpr std::int64_t kPerSecond = 1'000'000'000;
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kPerSecond - 1;
  return std::clamp<std::int64_t>(time.tv_sec, -kMost, kMost) * kPerSecond + time.tv_nsec;
}

}  // namespace tessel
