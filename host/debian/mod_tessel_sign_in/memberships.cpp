#include "host/debian/mod_tessel_sign_in/memberships.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "platform/process/accounts.h"

namespace tessel {

namespace {

constexpr std::int64_t kSecondsRemembered = 10;
constexpr size_t kMostAnswers = 4096;
// An edit in place may leave all stamps of a file as they are when it follows another that closely.
constexpr std::int64_t kSecondsUnsettled = 2;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

Result<bool> lookUpMember(const std::string& user, const std::string& group) {
  const auto account = accountOf(user);
  if (!account) return account.error();
  if (!*account) return false;
  const auto entry = groupOf(group);
  if (!entry) return entry.error();
  if (!*entry) return false;
  const auto& members = (*entry)->members;
  return (*account)->group == (*entry)->group ||
         std::find(members.begin(), members.end(), user) != members.end();
}

}  // namespace

Result<bool> Memberships::isMember(const std::string& user, const std::string& group) {
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
  auto isMember = lookUpMember(user, group);
  if (!isMember) return isMember;
  const std::int64_t changed =
      std::max({stamps.passwd.back(), stamps.group.back(), stamps.nsswitch.back()}) / kNanoseconds;
  if (std::time(nullptr) - changed < kSecondsUnsettled) return isMember;
  const std::lock_guard lock(mutex_);
  if (stamps == stamps_) {
    if (answers_.size() >= kMostAnswers) answers_.clear();
    answers_[question] = {*isMember, now};
  }
  return isMember;
}

}  // namespace tessel
