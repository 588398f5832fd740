#include <pwd.h>

#include "contract/apache_environment.h"
#include "contract/paths.h"
#include "host/debian/httpd_wrapper/settings.h"
#include "host/debian/tessel_host/checks.h"
#include "platform/base/text.h"
#include "platform/process/accounts.h"
#include "platform/property_list/description.h"

namespace tessel {

namespace {

const char* const kCorrect = "Correct it, then run: tesselctl start";

// Whether somebody is in a group, be it as the group of the account itself.
bool hasMembers(const AccountGroup& entry) {
  if (!entry.members.empty()) return true;
  const gid_t wanted = entry.group;
  bool found = false;
  ::setpwent();
  while (const passwd* account = ::getpwent()) {
    if (account->pw_gid == wanted) found = true;
  }
  ::endpwent();
  return found;
}

void checkGroup(const Configuration& configuration, Findings& findings) {
  const auto value = configuration.accessGroup();
  const auto name = value ? value->string() : std::nullopt;
  if (!name || name->empty()) return;
  const auto entry = groupOf(*name);
  // An unknown one, and one that cannot be looked up, is a remark.
  if (!entry || !*entry || hasMembers(**entry)) return;
  warn(findings, kSettingsFile,
       "nobody is in the access group " + shown(*name) + ", so nobody can sign in",
       "Run: adduser NAME " + shellWord(*name));
}

// A setting that was changed after the last start.
void checkTold(const Service& service, const char* key,
               const std::optional<PropertyListValue>& wanted, const char* variable,
               Findings& findings) {
  const auto told = service.environment->value(variable);
  if (description(told) == description(wanted)) return;
  warn(findings, kSettingsFile,
       std::string(key) + " is " + shown(description(wanted)) + " there, but Apache was told " +
           shown(description(told)),
       "Run: tesselctl start");
}

}  // namespace

void checkSettings(const Service& service, Findings& findings) {
  if (!service.settings) {
    warn(findings, kSettingsFile, shown(service.settings.error().description),
         "Correct it; until then tesselctl does nothing");
  } else {
    for (const std::string& remark : settingsRemarks(*service.settings)) {
      warn(findings, kSettingsFile, shown(remark), kCorrect);
    }
  }
  if (!service.environment) {
    warn(findings, kApacheEnvironmentFile, shown(service.environment.error().description),
         "Remove it, then run: tesselctl start");
    return;
  }
  for (const std::string& remark : service.apache.remarks) {
    warn(findings, kApacheEnvironmentFile, shown(remark), kCorrect);
  }
  if (!service.settings) return;
  const Configuration& configuration = service.configuration;
  checkGroup(configuration, findings);
  checkTold(service, "ServerPort", configuration.serverPort(), environment::kServerPort, findings);
  checkTold(service, "ServerAddr", configuration.serverAddress(), environment::kServerAddress,
            findings);
  checkTold(service, "AccessGroup", configuration.accessGroup(), environment::kAccessGroup,
            findings);
  if (configuration.usesTLS() != service.usesTLS) {
    warn(findings, kSettingsFile,
         std::string("ServerSSL has been turned ") + (service.usesTLS ? "off" : "on") +
             " since Apache was started",
         "Run: tesselctl start");
  }
}

}  // namespace tessel
