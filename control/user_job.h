// What the name of a per-user job file says: PREFIX.USER-PID.PORT.plist, where the prefix may hold
// dots itself.
#pragma once

#include <string>

namespace tessel {

// What a name lacks is empty.
struct UserJob {
  std::string user;
  std::string mapperPID;
  std::string port;
};

UserJob userJob(std::string name);

}  // namespace tessel
