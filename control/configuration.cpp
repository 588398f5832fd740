#include "control/configuration.h"

#include <utility>

namespace tessel {

Result<Configuration> Configuration::load(const std::string& path) {
  auto list = PropertyList::load(path);
  if (!list) return list.error();
  return Configuration(*std::move(list));
}

std::string Configuration::identityName() const {
  const auto name = serverName();
  return name ? name->string().value_or("") : "";
}

std::int32_t Configuration::portNumber() const {
  const auto port = serverPort();
  return port ? port->integer() : 0;
}

bool Configuration::usesTLS() const {
  const auto ssl = list_.value(setting::kServerSSL);
  return ssl && ssl->boolean();
}

bool Configuration::leavesApacheServerName() const {
  const auto name = list_.value(setting::kApacheServerName);
  return name && name->string() != "";
}

}  // namespace tessel
