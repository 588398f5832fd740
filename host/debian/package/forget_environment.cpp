// forget-environment
// Takes Tessel's entries out of the property list of Apache's environment, and removes the list
// when they were all. The package runs it when it is removed. A list that cannot be read, or not be
// written again as it was, stays as it is: exit status 1, with the reason on standard error.
#include <cstdlib>
#include <string>
#include <vector>

#include "contract/apache_environment.h"
#include "contract/paths.h"
#include "control/configuration.h"
#include "platform/files/file_manager.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

bool isTessels(const std::string& key) {
  return key.starts_with("TESSEL_") || key == tessel::environment::kUsesTLS;
}

// A server name that "start" leaves alone is the administrator's.
bool isServerNameTheirs() {
  const auto configuration = tessel::Configuration::load(tessel::kSettingsFile);
  return configuration && configuration->leavesApacheServerName();
}

tessel::Status forget() {
  const tessel::FileManager files;
  const std::string path = tessel::kApacheEnvironmentFile;
  if (files.isAbsent(path)) return {};
  auto list = tessel::PropertyList::load(path);
  if (!list) return list.error();

  std::vector<std::string> ours;
  size_t count = 0;
  for (const auto& [key, value] :
       list->root().entries().value_or(tessel::PropertyListValue::Entries{})) {
    ++count;
    const bool isTheirs = key == tessel::environment::kServerName && isServerNameTheirs();
    if (isTessels(key) && !isTheirs) ours.push_back(key);
  }
  if (ours.empty()) return {};
  if (ours.size() == count) return files.removeItem(path);
  for (const std::string& key : ours) list->remove(key);
  const auto xml = list->xml();
  if (!xml) return xml.error();
  return files.writeAtomically(path, *xml, tessel::FileManager::Attributes::KeepExisting);
}

}  // namespace

int main() {
  if (!tessel::prepareProcess()) return EXIT_FAILURE;
  const tessel::Status forgotten = forget();
  if (forgotten) return EXIT_SUCCESS;
  tessel::printErrorLine(std::string("Tessel's entries stay in ") + tessel::kApacheEnvironmentFile +
                         ": " + forgotten.error().description);
  return EXIT_FAILURE;
}
