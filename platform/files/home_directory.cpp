#include "platform/files/home_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace tessel {

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

}  // namespace tessel
