// The keys of Apache's environment list that Tessel writes or reads. A text becomes a variable of
// Apache's environment; a key "-D NAME" becomes a define, whatever its value.
#pragma once

#include <string_view>

namespace tessel::environment {

inline constexpr const char* kServerName = "TESSEL_SERVER_NAME";
inline constexpr const char* kServerPort = "TESSEL_SERVER_PORT";
inline constexpr const char* kServerAddress = "TESSEL_SERVER_ADDR";
inline constexpr const char* kAccessGroup = "TESSEL_ACCESS_GROUP";
inline constexpr const char* kCertID = "TESSEL_CERT_ID";

inline constexpr std::string_view kDefinePrefix = "-D ";
inline constexpr const char* kUsesTLS = "-D TESSEL_SSL";
inline constexpr const char* kOrrinHasDefaultPorts = "-D ORRIN_HAS_DEFAULT_PORTS";

}  // namespace tessel::environment
