// Why Apache has not started, for the administrator.
#pragma once

#include <string>
#include <vector>

namespace tessel {

// For what is known only as long as the machine runs.
inline constexpr const char* kRunFolder = "/run/tessel";
inline constexpr unsigned kRunFolderMode = 0755;

// While Apache runs without Tessel: the reason.
inline constexpr const char* kReasonFile = "/run/tessel/without";

// The programs that listen on a TCP port, as ps(1) has them: "123 USER PROGRAM ARGUMENT...". One
// that cannot be seen from here has no line.
std::vector<std::string> portHolders(const std::string& port);

// What of Apache's words on standard error matters, and when the port is taken by another program,
// which one, in lines without a newline at the end.
std::string failureReason(const std::string& errors, const std::string& port);

}  // namespace tessel
