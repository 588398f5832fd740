#include "host/debian/mod_tessel_sign_in/memberships.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <vector>

namespace tessel {

namespace {

constexpr std::int64_t kSecondsRemembered = 10;
constexpr size_t kMostAnswers = 4096;
// An edit in place may leave all stamps of a file as they are when it follows another that closely.
constexpr std::int64_t kSecondsUnsettled = 2;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

// Calls getpwnam_r or getgrnam_r with as much room as the entry takes.
template <typename Entry>
Entry* lookUp(int (*function)(const char*, Entry*, char*, size_t, Entry**), const char* name,
              Entry* entry, std::vector<char>* room) {
  constexpr size_t kSomeRoom = 1024;
  for (room->resize(kSomeRoom);; room->resize(2 * room->size())) {
    Entry* found = nullptr;
    const int failure = function(name, entry, room->data(), room->size(), &found);
    if (failure == 0) return found;
    if (failure != ERANGE && failure != EINTR) return nullptr;
  }
}

bool lookUpMember(const std::string& user, const std::string& group) {
  passwd account{};
  struct group members {};
  std::vector<char> accountRoom;
  std::vector<char> membersRoom;
  if (lookUp(::getpwnam_r, user.c_str(), &account, &accountRoom) == nullptr) return false;
  if (lookUp(::getgrnam_r, group.c_str(), &members, &membersRoom) == nullptr) return false;
  if (account.pw_gid == members.gr_gid) return true;
  for (char** member = members.gr_mem; *member != nullptr; ++member) {
    if (user == *member) return true;
  }
  return false;
}

}  // namespace

bool Memberships::isMember(const std::string& user, const std::string& group) {
  const AccountStamps stamps = files_.stamps();
  const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::steady_clock::now().time_since_epoch())
                               .count();
  const auto question = std::make_pair(user, group);
  {
    const std::lock_guard lock(mutex_);
    if (stamps != stamps_) {
      answers_.clear();
      stamps_ = stamps;
    }
    const auto found = answers_.find(question);
    if (found != answers_.end() && now - found->second.found < kSecondsRemembered) {
      return found->second.isMember;
    }
  }
  const bool isMember = lookUpMember(user, group);
  const std::int64_t changed =
      std::max({stamps.passwd.back(), stamps.group.back(), stamps.nsswitch.back()}) / kNanoseconds;
  if (std::time(nullptr) - changed < kSecondsUnsettled) return isMember;
  const std::lock_guard lock(mutex_);
  if (stamps == stamps_) {
    if (answers_.size() >= kMostAnswers) answers_.clear();
    answers_[question] = {isMember, now};
  }
  return isMember;
}

}  // namespace tessel
