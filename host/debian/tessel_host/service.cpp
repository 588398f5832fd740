#include "host/debian/tessel_host/service.h"

#include <unistd.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <climits>

#include "contract/apache_environment.h"
#include "contract/paths.h"
#include "control/launch_jobs.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/network/host_names.h"

namespace tessel {

namespace {

constexpr const char* kApacheConfiguration = "httpd_tessel.conf";
constexpr std::chrono::seconds kPatience{20};

Result<PropertyList> readList(const char* path) {
  if (FileManager().isAbsent(path)) return PropertyList();
  return PropertyList::load(path);
}

// The name in the settings, unless it is one that means every name.
std::string nameForClients(const Configuration& configuration) {
  const std::string name = configuration.identityName();
  return name.empty() || name == "*" ? hostName().value_or("localhost") : name;
}

// The address to connect to for one to listen on.
std::string reachable(const std::string& address) {
  if (address == "*" || address == "0.0.0.0") return "127.0.0.1";
  return address == "[::]" ? "[::1]" : address;
}

// An address of IPv6 has its brackets there.
std::string inURL(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

Result<HTTPAnswer> ask(const Service& service, const std::string& host, const std::string& server,
                       std::chrono::seconds patience) {
  const std::string scheme = service.usesTLS ? "https://" : "http://";
  return httpAsk({scheme + host + ":" + service.port + "/webdav/", server, patience});
}

}  // namespace

bool isTesselOn() {
  return FileManager().fileExistsAtPath(
      appendPathComponent(kApacheOtherFolder, kApacheConfiguration));
}

Service readService() {
  Service service;
  service.settings = PropertyList::load(kSettingsFile);
  if (auto configuration = Configuration::load(kSettingsFile)) {
    service.configuration = *std::move(configuration);
  }
  service.environment = readList(kApacheEnvironmentFile);
  service.apache = apacheStart(service.environment ? *service.environment : PropertyList());
  const auto& variables = service.apache.variables;
  const auto& defines = service.apache.defines;
  service.name = nameForClients(service.configuration);
  service.port = variables.at(environment::kServerPort);
  service.server = reachable(variables.at(environment::kServerAddress)) + ":" + service.port;
  service.certificateID = variables.at(environment::kCertID);
  const std::string define =
      std::string(environment::kUsesTLS).substr(environment::kDefinePrefix.size());
  service.usesTLS = std::find(defines.begin(), defines.end(), define) != defines.end();
  return service;
}

Result<HTTPAnswer> askService(const Service& service) {
  auto answer = ask(service, inURL(service.name), service.server, kPatience);
  // A name that fits no URL is another finding.
  return answer ? answer : ask(service, "localhost", service.server, kPatience);
}

Result<HTTPAnswer> askServiceAt(const Service& service, const std::string& address,
                                std::chrono::seconds patience) {
  return ask(service, inURL(service.name), inURL(address) + ":" + service.port, patience);
}

bool isApacheRunning() { return launchJobIsLoaded(kApacheJobLabel); }

std::optional<pid_t> apacheProcess() {
  constexpr size_t kLongest = 32;
  const auto text = FileManager().readFile("/run/apache2/apache2.pid", kLongest);
  if (!text) return std::nullopt;
  pid_t process = 0;
  (void)std::from_chars(text->data(), text->data() + text->size(), process);
  std::array<char, PATH_MAX> program{};
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), program.data(), program.size());
  if (process <= 0 || length < 0) return std::nullopt;
  const std::string_view path(program.data(), static_cast<size_t>(length));
  if (!path.starts_with("/usr/sbin/apache2")) return std::nullopt;
  return process;
}

}  // namespace tessel
