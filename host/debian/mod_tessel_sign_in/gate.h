// What all of Apache's processes know together about sign-ins: which passwords were right a moment
// ago, which checks are running, and who has failed how often. It lies in memory that the processes
// share, is of a fixed size, and survives any of them being killed.
//
// Any thread of any process may call all of it. Times are milliseconds of the clock that begins
// with the machine (now()).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/keychain/keyed_digest.h"

namespace tessel {

// Names a user together with a password; nobody can make one without Apache's key.
using SignInTag = SHA256Digest;

// A client, as digests under the same key. A value of 0 is not counted.
struct Client {
  std::uint64_t address = 0;  // where it comes from; 0 for this machine
  std::uint64_t user = 0;     // whom it wants to be
  std::uint64_t both = 0;
};

enum class CheckResult { Right, Wrong, Unknown };

struct Entry {
  enum class Kind {
    Granted,  // the password was right less than a minute ago
    Check,    // it is to be checked now, and finish() to follow
    Wait,     // another request checks the same: ask outcome() until it is known
    Busy,     // too many checks are running; try again soon
    Slowed,   // too many failures; try again in `retryAfter` seconds
  };
  Kind kind = Kind::Busy;
  size_t slot = 0;  // of Check and Wait
  std::uint64_t number = 0;
  size_t seat = 0;  // of Wait
  int retryAfter = 0;
};

class Gate {
 public:
  static constexpr std::int64_t kRemembered = 60'000;
  static constexpr std::int64_t kRenewed = 45'000;  // a password in use is checked anew this early
  static constexpr std::int64_t kCheckLimit = 20'000;
  static constexpr size_t kChecks = 16;
  static constexpr size_t kChecksOfAddress = 4;
  static constexpr size_t kWaiting = 16;
  // Failures are forgiven one by one; so many may be open at a time.
  struct Allowance {
    std::int64_t forgiven;  // one in so many milliseconds
    std::int64_t open;
  };
  static constexpr Allowance kOfAddress{15'000, 10};
  static constexpr Allowance kOfUser{10'000, 20};
  static constexpr Allowance kOfFamiliar{10'000, 20};

  // Memory that children inherit, with a new key in it; it stays until the process ends. Null when
  // there is no memory or no key.
  static void* makeMemory();
  static size_t sizeOfMemory();

  explicit Gate(void* memory);

  static std::int64_t now();

  // Digests of a text under the memory's key; an error, or 0, when the cryptographic library
  // refuses.
  Result<SignInTag> tagOf(std::string_view text) const;
  std::uint64_t keyOf(std::string_view text) const;

  // The users whose password is none, by keyOf(); they are refused. More than there is room for,
  // and everybody is refused. setRefused() says which of the two it is: false for the second.
  static constexpr size_t kMostRefused = 1024;
  bool setRefused(const std::vector<std::uint64_t>& users);
  // It is not known who they are, as at first: anybody may be one of them.
  void forgetRefused();
  // None while that is not known.
  std::optional<bool> isRefused(std::uint64_t user);

  // Whether a password is known to be right and not yet due to be checked anew, as with most
  // requests; then enter() need not be asked. False whenever there are accounts that isRefused(),
  // or may be.
  bool isGranted(const SignInTag& tag, std::int64_t now);

  // Whether and how a sign-in goes on. Who may not be remembered (`isNew`) is always checked.
  Entry enter(const SignInTag& tag, const Client& client, bool isNew, std::int64_t now);

  bool isRemembered(const SignInTag& tag, std::int64_t now);

  // Counts a wrong password and tells how long after `begun` it is to be answered, in milliseconds:
  // as late as the latest refusal of late, so that no refusal tells whether there is such a user.
  // `took` is what a real check of this one has taken, 0 when there was none.
  std::int64_t refuse(const Client& client, std::int64_t took, std::int64_t now);

  // Ends what enter() has begun.
  void finish(const Entry& entry, const SignInTag& tag, const Client& client, CheckResult result,
              std::int64_t now);

  // The result of the check that is waited for; false while it is running. The seat is given up
  // when it returns true.
  bool outcome(const Entry& entry, std::int64_t now, CheckResult* result);

 private:
  struct Tables;
  class Lock;

  Tables* tables_;
  Result<KeyedDigest> digest_;  // with the memory's key
};

}  // namespace tessel
