#include <algorithm>

#include "control/tessel_ctl.h"
#include "platform/network/host_names.h"
#include "platform/process/console.h"
#include "platform/property_list/description.h"

namespace tessel {

namespace {

constexpr std::int32_t kLargestPort = 65535;
constexpr std::int32_t kLargestPrivilegedPort = 1024;  // itself still counts as privileged

using MaybeValue = std::optional<PropertyListValue>;

// Whether the value is one of these strings; a value that only prints like one is not.
bool isAmong(const MaybeValue& value, const std::vector<std::string>& strings) {
  const auto string = value ? value->string() : std::nullopt;
  return string && std::find(strings.begin(), strings.end(), *string) != strings.end();
}

// Prints whether the value of this setting is one of the names or addresses of the machine.
bool isAvailable(const std::string& setting, const MaybeValue& value, const std::string& kind,
                 const std::vector<std::string>& available) {
  const std::string configured = "Configured " + setting + " " + description(value);
  if (isAmong(value, available)) {
    printLine(configured + " is among those available on machine.");
    return true;
  }
  reportError(configured + " is not among those available on machine.\nAvailable " + kind + ": " +
              description(available));
  return false;
}

bool nameIsGood(const MaybeValue& name) {
  if (isAmong(name, {"", "*", "localhost"})) return true;
  printLine("Checking available server names...");
  return isAvailable("ServerName", name, "names",
                     hostNames(name ? name->string().value_or("") : ""));
}

bool addressIsGood(const MaybeValue& address, bool usingSSL, bool behindOrrin) {
  if (isAmong(address, {"", "*", "127.0.0.1"})) return true;
  printLine("Checking available server addresses...");
  bool good = isAvailable("ServerAddr", address, "addresses", hostAddresses());
  // Every address that comes here is another than 127.0.0.1, so that both rules always apply.
  if (!usingSSL) {
    reportError("Configured ServerAddr " + description(address) +
                " is not 127.0.0.1 but SSL is off");
    good = false;
  }
  if (behindOrrin) {
    reportError(
        "Orrin is present and owns external addresses, so Tessel needs to be behind the service "
        "proxy, but configured ServerAddr " +
        description(address) + " is not 127.0.0.1");
    good = false;
  }
  return good;
}

bool portIsGood(std::int32_t port, bool usingSSL, bool behindOrrin) {
  bool good = true;
  if (port < 0 || port > kLargestPort) {
    reportError("Configured ServerPort " + std::to_string(port) + " is outside acceptable range");
    good = false;
  }
  if (port > kLargestPrivilegedPort && !usingSSL) {
    reportError("Configured ServerPort " + std::to_string(port) +
                " is outside the privileged port range, and ServerSSL is disabled.");
    good = false;
  }
  if (behindOrrin && port != kPortBehindOrrin) {
    reportError(
        "Orrin is present and owns ports 80/443, so Tessel needs to be behind the service proxy, "
        "but configured ServerPort is " +
        std::to_string(port) + ", should be 81");
    good = false;
  }
  return good;
}

}  // namespace

bool TesselCtl::configIsValid() const {
  const bool usingSSL = tesselConfigDictionary.usesTLS();
  const bool behindOrrin = orrinHasDefaultHTTPPorts();

  const bool goodName = nameIsGood(tesselConfigDictionary.serverName());
  const bool goodAddress =
      addressIsGood(tesselConfigDictionary.serverAddress(), usingSSL, behindOrrin);
  const bool goodPort = portIsGood(tesselConfigDictionary.portNumber(), usingSSL, behindOrrin);
  return goodName && goodAddress && goodPort;
}

}  // namespace tessel
