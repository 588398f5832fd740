// Who is in which group, by the system's databases of accounts and groups.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace tessel {

// What tells that a file is the one that it was: device, inode, size and times in nanoseconds. All
// 0 for a file that is not there.
using FileStamp = std::array<std::int64_t, 5>;
FileStamp fileStamp(const char* path);

// Remembers what it has looked up until one of the databases' files changes, and for ten seconds at
// most, since accounts may come from elsewhere. Any number of threads may call it.
class Memberships {
 public:
  // Whether the group is the user's primary group or names the user. False when there is no such
  // user or group.
  bool isMember(const std::string& user, const std::string& group);

 private:
  using Stamps = std::array<FileStamp, 3>;
  struct Answer {
    bool isMember;
    std::int64_t found;  // seconds of the clock that begins with the machine
  };

  std::mutex mutex_;
  Stamps stamps_{};
  std::map<std::pair<std::string, std::string>, Answer> answers_;
};

}  // namespace tessel
