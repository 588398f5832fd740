// How a folder looks to Apache.
#pragma once

#include <string>

namespace tessel {

inline constexpr const char* kApacheUser = "www-data";

// What keeps this process from serving the folder at an absolute path: a sentence for the
// administrator, empty when nothing does. The way is judged as the server goes it: a component at a
// time, with links followed when root owns them.
std::string obstacleOnTheWayTo(const std::string& path);

}  // namespace tessel
