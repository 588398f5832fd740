// The controller: one object per run, which knows where everything is and does the one command.
// Operations print their own messages and return whether they succeeded. Each is to be called once,
// from one thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "control/configuration.h"
#include "identity/identity_manager.h"
#include "platform/files/file_descriptor.h"
#include "platform/files/file_manager.h"
#include "platform/property_list/property_list.h"

namespace tessel {

// Where Tessel has to listen, on 127.0.0.1 and without TLS, when Orrin owns ports 80 and 443.
inline constexpr std::int32_t kPortBehindOrrin = 81;

class TesselCtl {
 public:
  // Checks that Tessel is installed and loads its configuration and Apache's environment. Null,
  // after one error line, when Tessel's folder, the master copy of its Apache configuration or its
  // own configuration is missing or unusable. An unusable environment counts as empty.
  static std::unique_ptr<TesselCtl> init();

  // Whether Tessel's Apache configuration is active. Neither the launch job nor Apache is asked.
  bool isEnabled() const;

  // Turns Tessel on and (re)loads Apache. False when the configuration cannot be made active or TLS
  // is wanted and there is no identity; whatever else fails is not reported.
  bool start();

  // Turns Tessel off; Apache is left off if Tessel had started it, and reloaded otherwise. False
  // when the configuration cannot be parked; true when it was already.
  bool stop();

  // Prints every share point with a name and a path. No directory service looks like no share
  // points.
  void showShares() const;

  // Shares a folder over WebDAV under its last name, and restarts Apache gracefully for a share
  // point that is new. False when the folder is refused or its record cannot be made or changed.
  bool addShare(const std::string& path) const;

  // Withdraws the share point with the path's last name from WebDAV, then restarts Apache
  // gracefully. False when there is none or it cannot be changed.
  bool removeShare(const std::string& path) const;

  // Prints all that there is to know about why Tessel does or does not serve. Changes nothing but
  // what the look-up of the identity exports. Always true: whatever fails is part of the report.
  bool diagnose();

 private:
  TesselCtl();

  bool isInstalled() const;
  // One that is missing or unusable counts as empty.
  void loadEnvironment();
  // Waits until no other start or stop runs, but no longer than 30 seconds, and reads the
  // environment anew. The others wait as long as the descriptor is held.
  FileDescriptor waitForTurn();

  // start.cpp
  bool activateApacheConfig() const;
  // Makes sure that a TLS identity is exported and that the environment names it. False, after a
  // message, when there is none and none can be made.
  bool checkCertsAndExportIfNeeded();
  void updateEnvironment();
  void setEnvironmentValue(const std::string& key, const std::optional<PropertyListValue>& value);

  // stop.cpp
  void removeUserJobs() const;

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

  // report.cpp
  void reportUserJobs() const;
  void reportApache(const std::string& serverName) const;
  void reportConfiguredPort(const std::string& serverName) const;

  std::optional<std::string> docPtr;  // reserved
  FileManager fileManager;
  std::string activeTesselApacheConfigFilePath;
  std::string inactiveTesselApacheConfigFilePath;
  std::string activeTesselProxyConfigFilePath;
  std::string inactiveTesselProxyConfigFilePath;
  std::string tesselConfigDirectory;
  std::string tesselApacheConfigFileName;
  std::string tesselApacheConfigFilePath;
  std::optional<std::string> executableName;  // reserved
  std::string launchAgentsDirectory;
  std::string tesselConfigFilePath;
  std::string tesselStartedApacheFilePath;  // the marker: Apache was not loaded before start
  Configuration tesselConfigDictionary;
  PropertyList httpdEnvDictionary;  // edited by start, which alone writes it back
  std::string httpdEnvFilePath;
  std::unique_ptr<IdentityManager> identityManager;  // none until an operation needs it
};

}  // namespace tessel
