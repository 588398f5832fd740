// Who is in which group, by the system's databases of accounts and groups.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "host/debian/mod_tessel_sign_in/account_files.h"
#include "platform/base/result.h"

namespace tessel {

// Remembers what it has looked up until one of the databases' files changes, and for ten seconds at
// most, since accounts may come from elsewhere. What could not be looked up is asked again. Any
// number of threads may call it.
class Memberships {
 public:
  explicit Memberships(AccountFiles& files) : files_(files) {}

  // Whether the group is the user's primary group or names the user. False when there is no such
  // user or group, an error when the databases cannot tell.
  Result<bool> isMember(const std::string& user, const std::string& group);

 private:
  struct Answer {
    bool isMember;
    std::int64_t found;  // seconds of the clock that begins with the machine
  };

  AccountFiles& files_;
  std::mutex mutex_;
  AccountStamps stamps_;
  std::map<std::pair<std::string, std::string>, Answer> answers_;
};

}  // namespace tessel
