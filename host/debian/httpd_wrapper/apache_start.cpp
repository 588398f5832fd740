#include "host/debian/httpd_wrapper/apache_start.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "contract/apache_environment.h"

namespace tessel {

namespace {

bool isAlphanumeric(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool isVariableName(std::string_view name) {
  const bool startsWithDigit = !name.empty() && name.front() >= '0' && name.front() <= '9';
  return !name.empty() && !startsWithDigit && std::all_of(name.begin(), name.end(), [](char c) {
    return isAlphanumeric(c) || c == '_';
  });
}

bool isAllowed(std::string_view name) {
  return name.starts_with("TESSEL_") || name.starts_with("ORRIN_");
}

// By these Apache prints something and ends, or stays in the foreground (httpd(8), server/main.c).
bool isApachesOwn(std::string_view define) {
  constexpr std::array<std::string_view, 4> kModes{"DEBUG", "FOREGROUND", "NO_DETACH",
                                                   "ONE_PROCESS"};
  return define.starts_with("DUMP_") ||
         std::find(kModes.begin(), kModes.end(), define) != kModes.end();
}

// Whether a text stays one argument of a directive when it is expanded between double quotes.
bool fitsQuotes(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '"' || c == '\\' || c == '$';
  });
}

bool isPort(const std::string& text) {
  std::uint16_t port = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
  return failure == std::errc() && end == text.data() + text.size() && port > 0;
}

bool isHostName(const std::string& text) {
  return !text.empty() && text.front() != '-' && std::all_of(text.begin(), text.end(), [](char c) {
    return isAlphanumeric(c) || c == '.' || c == '-' || c == '_';
  });
}

bool isIPv6Address(const std::string& text) {
  in6_addr address{};
  return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool isAddress(const std::string& text) {
  in_addr address{};
  return text == "*" || ::inet_pton(AF_INET, text.c_str(), &address) == 1 || isIPv6Address(text);
}

// It names files in a folder, so it must not lead out of it.
bool isFileNamePart(const std::string& text) {
  return fitsQuotes(text) && text.find('/') == std::string::npos;
}

// A value that httpd_tessel.conf expands.
struct TesselValue {
  const char* name;
  const char* whenMissing;
  bool (*isUsable)(const std::string&);
  const char* whenUnusable;
  const char* remark;  // about the setting that it comes from
};

bool isGroup(const std::string& text) { return !text.empty() && fitsQuotes(text); }
bool isAddressOrNothing(const std::string& text) { return text.empty() || isAddress(text); }

constexpr std::array kTesselValues{
    TesselValue{environment::kServerAddress, "*", isAddressOrNothing, "127.0.0.1",
                "ServerAddr is no address, so Apache listens on 127.0.0.1 alone"},
    TesselValue{environment::kServerPort, "8443", isPort, "8443",
                "ServerPort is no port, so 8443 is used"},
    TesselValue{environment::kServerName, "localhost", isHostName, "localhost",
                "TESSEL_SERVER_NAME is no host name, so localhost is used"},
    TesselValue{environment::kCertID, "", isFileNamePart, "",
                "TESSEL_CERT_ID names no file, so there is no certificate"},
    // No group's name has a colon, which separates the fields of the group database.
    TesselValue{environment::kAccessGroup, "", isGroup, ":",
                "AccessGroup is no group's name, so nobody may sign in"},
};

}  // namespace

ApacheStart apacheStart(const PropertyList& list) {
  ApacheStart start;
  const auto entries = list.root().entries();
  for (const auto& [key, value] : *entries) {
    const auto leaveOut = [&start, &key = key](const char* reason) {
      start.remarks.push_back(key + " is left out: " + reason);
    };
    if (key.starts_with(environment::kDefinePrefix)) {
      const std::string define = key.substr(environment::kDefinePrefix.size());
      if (isVariableName(define) && !isApachesOwn(define)) {
        start.defines.push_back(define);
      } else {
        leaveOut("no define of the configuration's");
      }
      continue;
    }
    const auto text = value.string();
    if (!isAllowed(key) || !isVariableName(key)) {
      leaveOut("only TESSEL_* and ORRIN_* reach Apache");
    } else if (text && text->find('\0') == std::string::npos) {
      start.variables.emplace(key, *text);
    }
  }
  for (const TesselValue& expected : kTesselValues) {
    const auto given = start.variables.find(expected.name);
    if (!list.value(expected.name)) {
      start.variables[expected.name] = expected.whenMissing;
    } else if (given == start.variables.end() || !expected.isUsable(given->second)) {
      start.variables[expected.name] = expected.whenUnusable;
      start.remarks.emplace_back(expected.remark);
    }
  }
  std::string& address = start.variables[environment::kServerAddress];
  if (address.empty()) address = "*";
  if (isIPv6Address(address)) address = "[" + address + "]";

  start.defines.emplace_back("TESSEL");
  if (!start.variables[environment::kAccessGroup].empty()) {
    start.defines.emplace_back("TESSEL_ACCESS_GROUP");
  }
  return start;
}

ApacheStart withoutTessel(ApacheStart start) {
  std::erase_if(start.defines, [](const std::string& name) { return name.starts_with("TESSEL"); });
  return start;
}

}  // namespace tessel
