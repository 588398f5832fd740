#include "host/debian/httpd_wrapper/settings.h"

#include <algorithm>
#include <string_view>

#include "contract/settings.h"
#include "platform/process/accounts.h"

namespace tessel {

namespace {

// Whether a value says off without being a way to say so.
bool isOddlyOff(const PropertyListValue& value) {
  if (value.boolean()) return false;
  if (value.elements() || value.entries() || value.data()) return true;
  const auto text = value.string();
  return text &&
         (text->empty() || std::string_view("nNfF0").find(text->front()) == std::string_view::npos);
}

}  // namespace

std::vector<std::string> settingsRemarks(const PropertyList& settings) {
  std::vector<std::string> remarks;
  const auto entries = settings.root().entries();
  for (const auto& [key, value] : *entries) {
    if (std::find(setting::kAll.begin(), setting::kAll.end(), std::string_view(key)) ==
        setting::kAll.end()) {
      remarks.push_back("nobody reads the key " + key);
    }
  }
  const auto name = settings.value(setting::kServerName);
  if (name && !name->string()) {
    remarks.emplace_back("ServerName is no text, so the host's name is used");
  }
  const auto ssl = settings.value(setting::kServerSSL);
  if (ssl && isOddlyOff(*ssl)) {
    remarks.emplace_back("ServerSSL is neither true nor false, so TLS is off");
  }
  const auto group = settings.value(setting::kAccessGroup);
  const auto groupName = group ? group->string() : std::nullopt;
  if (groupName && !groupName->empty()) {
    const auto known = groupOf(*groupName);
    if (!known || !*known) {
      remarks.push_back("AccessGroup names the group " + *groupName +
                        (known ? ", which does not exist, so nobody may sign in"
                               : ", which cannot be looked up: " + known.error().description));
    }
  }
  return remarks;
}

}  // namespace tessel
