// The TLS identity for one server name: looked up in the system keychain when the object is made,
// and created on demand.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace tessel {

class IdentityManager {
 public:
  // For the host's name.
  static std::unique_ptr<IdentityManager> init();

  // Looks the identity up and, finding one, exports it: the export is the test that it is usable.
  // Prints what it finds. The object exists either way; certID() tells.
  static std::unique_ptr<IdentityManager> initWithServerName(const std::string& name);

  // For this name, or for the host's where it is empty.
  static std::unique_ptr<IdentityManager> initWithConfiguredName(const std::string& name) {
    return initWithServerName(nameFor(name));
  }

  // The server name for a configured one: itself, or the host's where it is empty.
  static std::string nameFor(const std::string& configuredName);

  const std::string& serverName() const { return serverName_; }

  // The certificate ID of the identity found or created; none when there is no usable one.
  const std::optional<std::string>& certID() const { return certID_; }

  // Makes a self-signed identity for the server name that /usr/sbin/httpd may use, exports it and
  // takes over its certificate ID. Returns whether there is one; false, after a message, leaves
  // certID() as it was.
  bool createIdentityAndUpdate();

 private:
  explicit IdentityManager(std::string serverName) : serverName_(std::move(serverName)) {}

  std::string serverName_;
  std::optional<std::string> certID_;
};

}  // namespace tessel
