#include "host/debian/mod_tessel_sign_in/open_accounts.h"

#include <shadow.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tessel {

std::optional<std::vector<std::string>> openAccounts(const char* shadowFile) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(shadowFile, "re"), std::fclose);
  if (!file) return std::nullopt;
  std::vector<std::string> names;
  std::vector<char> room(4096);
  for (;;) {
    spwd entry{};
    spwd* found = nullptr;
    const int failure = ::fgetspent_r(file.get(), &entry, room.data(), room.size(), &found);
    if (failure == ERANGE) {
      // The same line once more, with more room.
      room.resize(2 * room.size());
    } else if (failure != 0) {
      break;
    } else if (entry.sp_pwdp[0] == '\0') {
      names.emplace_back(entry.sp_namp);
    }
  }
  ::explicit_bzero(room.data(), room.size());
  return names;
}

}  // namespace tessel
