#include "platform/process/accounts.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>

#include "platform/base/system_error.h"
#include "platform/base/text.h"

namespace tessel {

namespace {

// Calls getpwnam_r or getgrnam_r with as much room as the entry takes. They return 0 for what is
// not there as well, and a number for everything else.
template <typename Entry>
Result<const Entry*> lookUp(int (*function)(const char*, Entry*, char*, size_t, Entry**),
                            const std::string& name, Entry& entry, std::vector<char>& room) {
  constexpr size_t kSomeRoom = 1024;
  constexpr size_t kMostRoom = 1UL << 28;
  for (room.resize(kSomeRoom);;) {
    Entry* found = nullptr;
    const int failure = function(name.c_str(), &entry, room.data(), room.size(), &found);
    if (failure == 0) return found;
    if (failure == EINTR) continue;
    if (failure != ERANGE || room.size() >= kMostRoom) {
      return systemError("cannot look up " + shown(name), failure);
    }
    room.resize(2 * room.size());
  }
}

}  // namespace

Result<std::optional<Account>> accountOf(const std::string& name) {
  passwd entry{};
  std::vector<char> room;
  const auto found = lookUp(::getpwnam_r, name, entry, room);
  if (!found) return found.error();
  if (*found == nullptr) return std::optional<Account>();
  return std::optional(Account{name, entry.pw_uid, entry.pw_gid});
}

Result<std::optional<AccountGroup>> groupOf(const std::string& name) {
  group entry{};
  std::vector<char> room;
  const auto found = lookUp(::getgrnam_r, name, entry, room);
  if (!found) return found.error();
  if (*found == nullptr) return std::optional<AccountGroup>();
  AccountGroup group{entry.gr_gid, {}};
  for (char** member = entry.gr_mem; *member != nullptr; ++member) {
    group.members.emplace_back(*member);
  }
  return std::optional(std::move(group));
}

}  // namespace tessel
