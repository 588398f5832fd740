// The host's service manager and the jobs that it runs. A job is named by its label; its definition
// is a property-list file.
#pragma once

#include <string>
#include <vector>

namespace tessel {

// The job of the host's shared Apache.
inline constexpr const char* kApacheJobLabel = "org.apache.httpd";

// The file that defines a job of the system.
std::string plistPathForLabel(const std::string& label);

// Whether the service manager says that it has the job loaded. False as well when it cannot be
// asked.
bool launchJobIsLoaded(const std::string& label);

// Loads a job for now and for every start of the host; the service manager's messages are let
// through. Returns whether it succeeded.
bool loadLaunchJob(const std::string& label);

// Unloads a job for now and for every start of the host, silently. Returns whether it succeeded;
// the second takes the job by its file.
bool unloadLaunchJob(const std::string& label);
bool unloadLaunchJobFile(const std::string& path);

// Has Apache reread its configuration without dropping connections. Prints "Gracefully restarted
// httpd" when that fails, and nothing when it works.
void restartHTTPDGracefully();

}  // namespace tessel
