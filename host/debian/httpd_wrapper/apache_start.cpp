#include "host/debian/httpd_wrapper/apache_start.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace tessel {

namespace {

constexpr std::string_view kDefinePrefix = "-D ";

bool isAlphanumeric(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool isVariableName(std::string_view name) {
  const bool startsWithDigit = !name.empty() && name.front() >= '0' && name.front() <= '9';
  return !name.empty() && !startsWithDigit && std::all_of(name.begin(), name.end(), [](char c) {
    return isAlphanumeric(c) || c == '_';
  });
}

bool belongsToHost(std::string_view name) {
  return name.starts_with("APACHE_") || name.starts_with("LD_") || name == "PATH" ||
         name == "GLIBC_TUNABLES";
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
};

constexpr std::array kTesselValues{
    TesselValue{"TESSEL_SERVER_ADDR", "*", isAddress, "127.0.0.1"},
    TesselValue{"TESSEL_SERVER_PORT", "8443", isPort, "8443"},
    TesselValue{"TESSEL_SERVER_NAME", "localhost", isHostName, "localhost"},
    TesselValue{"TESSEL_CERT_ID", "", isFileNamePart, ""},
    // No group's name has a colon, which separates the fields of the group database.
    TesselValue{"TESSEL_ACCESS_GROUP", "", fitsQuotes, ":"},
};

}  // namespace

ApacheStart apacheStart(const PropertyList& environment) {
  ApacheStart start;
  const auto entries = environment.root().entries();
  for (const auto& [key, value] : *entries) {
    const auto leaveOut = [&start, &key = key](const char* reason) {
      start.remarks.push_back(key + " is left out: " + reason);
    };
    if (key.starts_with(kDefinePrefix)) {
      const std::string define = key.substr(kDefinePrefix.size());
      if (!define.empty() && fitsQuotes(define)) {
        start.defines.push_back(define);
      } else {
        leaveOut("not the name of a define");
      }
      continue;
    }
    const auto text = value.string();
    if (!text) continue;
    if (!isVariableName(key)) {
      leaveOut("not the name of a variable");
    } else if (belongsToHost(key)) {
      leaveOut("the host sets it");
    } else if (text->find('\0') != std::string::npos) {
      leaveOut("it has a NUL byte");
    } else {
      start.variables.emplace(key, *text);
    }
  }
  for (const TesselValue& expected : kTesselValues) {
    std::string& value = start.variables[expected.name];
    if (value.empty()) value = expected.whenMissing;
    if (!value.empty() && !expected.isUsable(value)) {
      value = expected.whenUnusable;
      start.remarks.push_back(std::string(expected.name) + " is not usable and replaced by \"" +
                              value + "\"");
    }
  }
  std::string& address = start.variables["TESSEL_SERVER_ADDR"];
  if (isIPv6Address(address)) address = "[" + address + "]";

  start.defines.emplace_back("TESSEL");
  if (!start.variables["TESSEL_ACCESS_GROUP"].empty()) {
    start.defines.emplace_back("TESSEL_ACCESS_GROUP");
  }
  return start;
}

}  // namespace tessel
