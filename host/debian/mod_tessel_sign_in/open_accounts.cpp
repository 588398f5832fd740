#include "host/debian/mod_tessel_sign_in/open_accounts.h"

#include <algorithm>
#include <string_view>

#include "platform/base/system_error.h"
#include "platform/files/file_manager.h"

namespace tessel {

Result<std::vector<std::string>> openAccounts(const std::string& file) {
  constexpr size_t kLargestFile = 1UL << 28;
  std::vector<std::string> names;
  const auto content = FileManager().readSecretFile(file, kLargestFile);
  if (!content && isAbsence(content.error().code)) return names;
  if (!content) return content.error();
  // Lines of NAME:PASSWORD:...
  std::string_view rest = content->view();
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const size_t name = line.find(':');
    if (name != std::string_view::npos && line.substr(name + 1, 1) == ":") {
      names.emplace_back(line.substr(0, name));
    }
  }
  return names;
}

}  // namespace tessel
