// The files in which this machine keeps its accounts, and whether they have changed.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>

namespace tessel {

inline constexpr const char* kShadowFile = "/etc/shadow";

// What tells that a file is the one that it was: device, inode, size and times in nanoseconds. All
// 0 for a file that is not there or cannot be looked at.
using FileStamp = std::array<std::int64_t, 5>;
FileStamp fileStamp(const char* path);

struct AccountStamps {
  FileStamp passwd{}, group{}, nsswitch{}, shadow{};
  bool operator==(const AccountStamps&) const = default;
};

// Does not look at the files again when that was just now (isRecent()), because every request asks.
// Any number of threads may call it.
class AccountFiles {
 public:
  AccountStamps stamps();

 private:
  std::mutex mutex_;
  std::optional<std::int64_t> lookedAt_;  // by coarseClock()
  AccountStamps stamps_;
};

}  // namespace tessel
