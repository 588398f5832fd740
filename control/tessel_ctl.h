// The controller: one object per run, which knows where everything is and does the one command.
// Operations print their own messages and return whether they succeeded; each concern has a source
// file of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "identity/identity_manager.h"
#include "platform/files/file_descriptor.h"
#include "platform/files/file_manager.h"
#include "platform/property_list/property_list.h"
#include "shares/share_point.h"

namespace tessel {

// The launch job of the host's shared Apache.
inline constexpr const char* kApacheJobLabel = "org.apache.httpd";

// Where Tessel has to listen, on 127.0.0.1 and without TLS, when Orrin owns ports 80 and 443.
inline constexpr std::int32_t kPortBehindOrrin = 81;

class TesselCtl {
 public:
  // files.cpp

  // Checks that Tessel is installed and loads its configuration and Apache's environment. Null,
  // after one error line, when Tessel's folder, the master copy of its Apache configuration or its
  // own configuration is missing or unusable. An unusable environment counts as empty.
  static std::unique_ptr<TesselCtl> init();

  // Whether Tessel's Apache configuration is active. Neither the launch job nor Apache is asked.
  bool isEnabled() const;

  // start.cpp

  // Turns Tessel on and (re)loads Apache. False when the configuration cannot be made active or TLS
  // is wanted and there is no identity; whatever else fails is not reported.
  bool start();

  // stop.cpp

  // Turns Tessel off; Apache is left off if Tessel had started it, and reloaded otherwise. False
  // when the configuration cannot be parked; true when it was already.
  bool stop();

  // runner.cpp

  // Runs a program and returns what it printed: trimmed standard output, directly followed by
  // trimmed standard error. A stream that is not UTF-8 counts as empty. For a program that cannot
  // be started, a text that names it and the reason.
  std::string resultsFromCommand(const std::string& launchPath,
                                 const std::vector<std::string>& args) const;

  // The file that defines a launch job.
  std::string plistPathForLabel(const std::string& label) const;

  // Whether the service manager says that it has the job loaded. False as well when it cannot be
  // asked.
  bool launchJobIsLoaded(const std::string& label) const;

  // Loads a job for now and for every start of the host; the service manager's messages are let
  // through. Returns whether it succeeded.
  bool loadLaunchJob(const std::string& label) const;

  // Unloads a job for now and for every start of the host, silently. Returns whether it succeeded.
  bool unloadLaunchJob(const std::string& label) const;

  // The names of Tessel's per-user job files, in the system's order.
  std::vector<std::string> tesselPlists() const;

  // proxy.cpp

  // Whether Orrin has registered itself in Apache's environment as the owner of ports 80 and 443.
  bool orrinHasDefaultHTTPPorts() const;

  // Makes or removes the link that has Orrin's proxy relay to Tessel, and has Orrin reload if it
  // did. False, after a message, when the link cannot be made or removed.
  bool configureServerToProxyToTessel(bool enable) const;

  // validation.cpp

  // Whether the configured server name, address and port suit this machine and its Orrin. Prints
  // what it looks up and every problem that it finds. Changes nothing.
  bool configIsValid() const;

  // probes.cpp

  // Prints and returns the running processes whose names begin with "httpd", a line each, after
  // ps's column headings.
  std::string httpdProcessString() const;

  // The HTTP status of a GET for the root of the server at this port of 127.0.0.1 or else of the
  // identity's server name, for which every certificate will do; of the host "(null)" when there is
  // no identity manager. 0, after two lines that say why, when there is no response.
  std::int64_t httpResponseOnPort(const std::string& port, bool usingSSL,
                                  bool usingLocalhost) const;

  // Has Apache reread its configuration without dropping connections. Prints "Gracefully restarted
  // httpd" when that fails, and nothing when it works.
  void restartHTTPDGracefully() const;

  // report.cpp

  // Prints all that there is to know about why Tessel does or does not serve. Changes nothing but
  // what the look-up of the identity exports. Always true: whatever fails is part of the report.
  bool diagnose();

  // shares/share_listing.cpp

  // Every share point with a name and a path, in the directory's order. None when there is no
  // directory service to ask; empty when its records cannot be read.
  std::optional<std::vector<ShareSummary>> sharePointDictionaries() const;

  // Prints them as a table. No directory service looks like no share points.
  void showShares() const;

  // shares/share_addition.cpp

  // Shares a folder over WebDAV under its last name: makes a share point, and then restarts Apache
  // gracefully, or updates the one of that name whatever folder it has. False, after a message,
  // when the folder is refused or its record cannot be made or changed.
  bool addShare(const std::string& path) const;

  // shares/share_removal.cpp

  // Withdraws the share point with the path's last name from WebDAV: deletes it unless another
  // service has a flag on it, then restarts Apache gracefully. False, after a message, when there
  // is none or it cannot be changed.
  bool removeShare(const std::string& path) const;

  // identity/certificate_check.cpp

  // Makes sure that a TLS identity is exported and that Apache's environment names it. False, after
  // a message, when there is none and none can be made.
  bool checkCertsAndExportIfNeeded();

 private:
  TesselCtl();

  bool isInstalled() const;
  void loadEnvironment();
  Result<FileDescriptor> waitForTurn() const;
  bool activateApacheConfig() const;
  void updateEnvironment();
  void setEnvironmentValue(const std::string& key, const std::optional<PropertyListValue>& value);
  void removeUserJobs() const;
  void reportUserJobs() const;
  void reportApache() const;
  void reportConfiguredPort() const;
  bool isShareable(const std::string& path) const;

  std::optional<std::string> docPtr;  // reserved
  FileManager fileManager;
  std::string activeTesselApacheConfigFilePath;
  std::string inactiveTesselApacheConfigFilePath;
  std::string activeTesselProxyConfigFilePath;
  std::string inactiveTesselProxyConfigFilePath;
  std::string tesselConfigDirectory;
  std::string tesselStateDirectory;
  std::string tesselApacheConfigFileName;
  std::string tesselApacheConfigFilePath;
  std::optional<std::string> executableName;  // reserved
  std::string launchAgentsDirectory;
  std::string tesselConfigFilePath;
  std::string tesselStartedApacheFilePath;  // the marker: Apache was not loaded before start
  PropertyList tesselConfigDictionary;      // never changed
  PropertyList httpdEnvDictionary;          // edited by start, which alone writes it back
  std::string httpdEnvFilePath;
  std::unique_ptr<IdentityManager> identityManager;  // none until an operation needs it
};

}  // namespace tessel
