// The per-user jobs of Tessel that other programs leave behind: files PREFIX.USER-PID.PORT.plist,
// where the prefix holds "org.apache.httpd.tessel" and may hold more dots.
#pragma once

#include <string>
#include <vector>

namespace tessel {

// The names of the files in the folder that belong to Tessel, in the system's order. Empty when it
// cannot be listed.
std::vector<std::string> tesselPlists(const std::string& launchAgentsDirectory);

// What a file's name says. What it lacks is empty.
struct UserJob {
  std::string user;
  std::string mapperPID;
  std::string port;
};

UserJob userJob(std::string name);

}  // namespace tessel
