// The keys of tessel.plist. What each means is in the manual page tessel.plist(5).
#pragma once

#include <array>

namespace tessel::setting {

inline constexpr const char* kServerName = "ServerName";
inline constexpr const char* kServerAddress = "ServerAddr";
inline constexpr const char* kServerPort = "ServerPort";
inline constexpr const char* kServerSSL = "ServerSSL";
inline constexpr const char* kAccessGroup = "AccessGroup";
inline constexpr const char* kApacheServerName = "TESSEL_SERVER_NAME";

inline constexpr std::array kAll{kServerName, kServerAddress, kServerPort,
                                 kServerSSL,  kAccessGroup,   kApacheServerName};

}  // namespace tessel::setting
