// What tessel.plist says: each key with the meaning that every reader gives it. The list is never
// changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "contract/settings.h"
#include "platform/property_list/property_list.h"

namespace tessel {

class Configuration {
 public:
  // One without any key.
  Configuration() = default;

  // Why the file cannot be read, or is no property list with a dictionary as its root.
  static Result<Configuration> load(const std::string& path);

  // The values as they stand, for comparing them, copying them and showing them; none where the key
  // is absent. Valid as long as this object.
  std::optional<PropertyListValue> serverName() const { return list_.value(setting::kServerName); }
  std::optional<PropertyListValue> serverAddress() const {
    return list_.value(setting::kServerAddress);
  }
  std::optional<PropertyListValue> serverPort() const { return list_.value(setting::kServerPort); }
  std::optional<PropertyListValue> accessGroup() const {
    return list_.value(setting::kAccessGroup);
  }

  // The name for which an identity is looked up; empty when the host's name serves, which is when
  // none that is a text is configured.
  std::string identityName() const;
  // The port as a number, 0 when none is configured.
  std::int32_t portNumber() const;
  bool usesTLS() const;
  // Whether the name that Apache is told is somebody else's business than start's.
  bool leavesApacheServerName() const;

  // The list as a whole.
  PropertyListValue root() const { return list_.root(); }

 private:
  explicit Configuration(PropertyList list) : list_(std::move(list)) {}

  PropertyList list_;
};

}  // namespace tessel
