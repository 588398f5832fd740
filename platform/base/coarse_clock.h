// A clock for what is looked at again after a few milliseconds, because to look for each of
// thousands of requests a second would take a good part of their time.
#pragma once

#include <cstdint>
#include <ctime>

namespace tessel {

// Nanoseconds since the machine was started, behind by a tick of the kernel's at most: 4 ms at the
// 250 Hz of Debian's kernels, 10 ms at 100 Hz. It costs next to nothing to ask
// (CLOCK_MONOTONIC_COARSE, clock_gettime(2)).
inline std::int64_t coarseClock() {
  constexpr std::int64_t kPerSecond = 1'000'000'000;
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time.tv_sec * kPerSecond + time.tv_nsec;
}

// Whether this time of the clock was less than four milliseconds ago. With what the clock is behind
// it may be a tick more: below some ten milliseconds, or fifteen at 100 Hz.
inline bool isRecent(std::int64_t time) {
  constexpr std::int64_t kRecent = 4'000'000;
  return coarseClock() - time < kRecent;
}

}  // namespace tessel
