#include "platform/host.h"

#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/text.h"

namespace tessel {

namespace {

constexpr size_t kHostNameLimit = 255;

}  // namespace

uid_t effectiveUserID() { return ::geteuid(); }

std::optional<std::string> hostName() {
  // The byte beyond the limit ends a name that fills the buffer.
  std::array<char, kHostNameLimit + 1> buffer{};
  if (::gethostname(buffer.data(), kHostNameLimit) != 0) return std::nullopt;
  std::string name(buffer.data());
  if (!isUTF8(name)) return std::nullopt;
  return name;
}

std::optional<std::string> homeDirectory(const std::string& user) {
  constexpr size_t kLargestEntry = 1UL << 20U;
  passwd entry{};
  passwd* found = nullptr;
  for (std::vector<char> texts(1024);; texts.resize(2 * texts.size())) {
    const int failure =
        user.empty() ? ::getpwuid_r(::geteuid(), &entry, texts.data(), texts.size(), &found)
                     : ::getpwnam_r(user.c_str(), &entry, texts.data(), texts.size(), &found);
    if (failure == ERANGE && texts.size() < kLargestEntry) continue;
    if (found == nullptr || *found->pw_dir == '\0') return std::nullopt;
    return std::string(found->pw_dir);
  }
}

std::optional<std::string> localeCountryCode() {
  std::string locale;
  for (const char* variable : {"LC_ALL", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      locale = value;
      break;
    }
  }
  const std::string name = locale.substr(0, locale.find_first_of(".@"));
  const size_t underscore = name.find('_');
  if (underscore == std::string::npos) return std::nullopt;
  const std::string territory = name.substr(underscore + 1);
  const auto isUpperCase = [](char c) { return c >= 'A' && c <= 'Z'; };
  if (territory.size() != 2 || !isUpperCase(territory[0]) || !isUpperCase(territory[1])) {
    return std::nullopt;
  }
  return territory;
}

std::optional<std::string> executablePath() {
  // The path that execve(2) was given; unlike /proc/self/exe it needs no /proc. The working
  // directory has not changed since.
  const unsigned long address = ::getauxval(AT_EXECFN);
  if (address == 0) return std::nullopt;
  // getauxval(3) hands pointers over as numbers.
  const char* started =
      reinterpret_cast<const char*>(address);  // NOLINT(performance-no-int-to-ptr)
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(started, nullptr), std::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

}  // namespace tessel
