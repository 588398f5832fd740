#include "host/debian/mod_tessel_sign_in/gate.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <new>

namespace tessel {

namespace {

constexpr size_t kWays = 4;
constexpr size_t kRememberedSets = 1024;
constexpr size_t kFailureSets = 2048;
constexpr size_t kFamiliarSets = 1024;
constexpr std::int64_t kSecond = 1000;
// Longer than any check, with the wait for its answer.
constexpr std::int64_t kStale = 2 * Gate::kCheckLimit;
// PAM waits two seconds after a wrong password, give or take a quarter (pam_fail_delay(3)).
constexpr std::int64_t kUsualRefusal = 3000;
constexpr std::int64_t kRefusalStep = 500;
constexpr std::int64_t kRefusalKept = 600'000;

struct Remembered {
  SignInTag tag;
  std::int64_t until;
  std::int64_t renewed;
};

struct Failures {
  std::uint64_t key;
  std::int64_t forgivenAt;  // when the last of them is
};

struct Familiar {
  std::uint64_t key;
  std::int64_t last;
};

struct Check {
  pid_t owner;  // 0 when there is none
  std::int64_t begun;
  std::uint64_t address;
  std::uint64_t number;  // of the check that ran here last
  SignInTag tag;
  CheckResult result;
};

struct Seat {
  pid_t owner;
  std::int64_t taken;
};

bool isAlive(pid_t process) { return ::kill(process, 0) == 0 || errno != ESRCH; }

// Whether a slot is held; one whose process was killed is not.
bool isHeld(pid_t owner, std::int64_t since, std::int64_t now) {
  return owner != 0 && now - since < kStale && isAlive(owner);
}

bool isSame(const SignInTag& one, const SignInTag& other) {
  unsigned difference = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    difference |= static_cast<unsigned>(one.at(i) ^ other.at(i));
  }
  return difference == 0;
}

size_t setOf(std::uint64_t key, size_t sets) { return static_cast<size_t>(key % sets) * kWays; }

std::uint64_t numberIn(const SHA256Digest& digest) {
  std::uint64_t number = 0;
  std::memcpy(&number, digest.data(), sizeof number);
  return number;
}

}  // namespace

struct Gate::Tables {
  pthread_mutex_t mutex;
  DigestKey digestKey;
  std::uint64_t lastNumber;
  std::int64_t longestRefusal;
  std::int64_t longestRefusalAt;
  bool isRefusedKnown;
  size_t refusedCount;  // more than there is room for: everybody
  std::array<std::uint64_t, kMostRefused> refused;
  std::array<Check, kChecks> checks;
  std::array<Seat, kWaiting> seats;
  std::array<Remembered, kRememberedSets * kWays> remembered;
  std::array<Failures, kFailureSets * kWays> failures;
  std::array<Familiar, kFamiliarSets * kWays> familiar;

  Remembered* find(const SignInTag& tag, std::int64_t now) {
    Remembered* set = &remembered[setOf(numberIn(tag), kRememberedSets)];
    for (Remembered* one = set; one != set + kWays; ++one) {
      if (now < one->until && isSame(one->tag, tag)) return one;
    }
    return nullptr;
  }

  void remember(const SignInTag& tag, std::int64_t now) {
    Remembered* place = find(tag, now);
    if (place == nullptr) {
      Remembered* set = &remembered[setOf(numberIn(tag), kRememberedSets)];
      place = std::min_element(
          set, set + kWays,
          [](const Remembered& one, const Remembered& other) { return one.until < other.until; });
    }
    *place = {tag, now + kRemembered, now + kRenewed};
  }

  std::int64_t* forgivenAt(std::uint64_t key) {
    Failures* set = &failures[setOf(key, kFailureSets)];
    for (Failures* one = set; one != set + kWays; ++one) {
      if (one->key == key) return &one->forgivenAt;
    }
    return nullptr;
  }

  void count(std::uint64_t key, const Allowance& allowance, std::int64_t now) {
    if (key == 0) return;
    std::int64_t* found = forgivenAt(key);
    if (found == nullptr) {
      Failures* set = &failures[setOf(key, kFailureSets)];
      Failures* place =
          std::min_element(set, set + kWays, [](const Failures& one, const Failures& other) {
            return one.forgivenAt < other.forgivenAt;
          });
      *place = {key, now};
      found = &place->forgivenAt;
    }
    *found = std::max(*found, now) + allowance.forgiven;
  }

  // How long it takes until one more failure is allowed; 0 when it is.
  std::int64_t slowed(std::uint64_t key, const Allowance& allowance, std::int64_t now) {
    const std::int64_t* found = key == 0 ? nullptr : forgivenAt(key);
    if (found == nullptr) return 0;
    return std::max<std::int64_t>(0, *found - now - (allowance.open - 1) * allowance.forgiven);
  }

  Familiar* findFamiliar(std::uint64_t key) {
    Familiar* set = &familiar[setOf(key, kFamiliarSets)];
    for (Familiar* one = set; one != set + kWays; ++one) {
      if (one->key == key) return one;
    }
    return nullptr;
  }

  void makeFamiliar(std::uint64_t key, std::int64_t now) {
    Familiar* place = findFamiliar(key);
    if (place == nullptr) {
      Familiar* set = &familiar[setOf(key, kFamiliarSets)];
      place = std::min_element(set, set + kWays, [](const Familiar& one, const Familiar& other) {
        return one.last < other.last;
      });
    }
    *place = {key, now};
  }

  // From where a user has signed in before, only failures from there count, so that nobody can slow
  // them down from elsewhere.
  std::int64_t slowed(const Client& client, std::int64_t now) {
    if (findFamiliar(client.both) != nullptr) return slowed(client.both, kOfFamiliar, now);
    return std::max(slowed(client.address, kOfAddress, now), slowed(client.user, kOfUser, now));
  }

  Check* freeCheck(std::uint64_t address, std::int64_t now) {
    Check* free = nullptr;
    size_t ofAddress = 0;
    for (Check& check : checks) {
      if (!isHeld(check.owner, check.begun, now)) {
        // The one that has been free for longest: somebody may still ask for a later one's result.
        if (free == nullptr || check.number < free->number) free = &check;
      } else if (address != 0 && check.address == address) {
        ++ofAddress;
      }
    }
    return ofAddress < kChecksOfAddress ? free : nullptr;
  }
};

// A process that was killed with the lock in its hands leaves tables in which at worst one entry is
// half written, and half a digest is nobody's.
class Gate::Lock {
 public:
  explicit Lock(Tables* tables) : tables_(tables) {
    if (::pthread_mutex_lock(&tables_->mutex) == EOWNERDEAD) {
      ::pthread_mutex_consistent(&tables_->mutex);
    }
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  Lock(Lock&&) = delete;
  Lock& operator=(Lock&&) = delete;
  ~Lock() { ::pthread_mutex_unlock(&tables_->mutex); }

 private:
  Tables* tables_;
};

void* Gate::makeMemory() {
  const auto key = randomDigestKey();
  if (!key) return nullptr;
  void* memory =
      ::mmap(nullptr, sizeof(Tables), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  auto* tables = new (memory) Tables{};
  tables->digestKey = *key;
  pthread_mutexattr_t attributes{};
  ::pthread_mutexattr_init(&attributes);
  ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  ::pthread_mutex_init(&tables->mutex, &attributes);
  ::pthread_mutexattr_destroy(&attributes);
  return memory;
}

Gate::Gate(void* memory)
    : tables_(static_cast<Tables*>(memory)), digest_(KeyedDigest::withKey(tables_->digestKey)) {}

size_t Gate::sizeOfMemory() { return sizeof(Tables); }

std::int64_t Gate::now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

Result<SignInTag> Gate::tagOf(std::string_view text) const {
  if (!digest_) return digest_.error();
  return digest_->of(text);
}

std::uint64_t Gate::keyOf(std::string_view text) const {
  const auto tag = tagOf(text);
  return tag ? numberIn(*tag) : 0;
}

bool Gate::setRefused(const std::vector<std::uint64_t>& users) {
  const Lock lock(tables_);
  tables_->isRefusedKnown = true;
  tables_->refusedCount = users.size();
  if (users.size() > kMostRefused) return false;
  std::copy(users.begin(), users.end(), tables_->refused.begin());
  return true;
}

void Gate::forgetRefused() {
  const Lock lock(tables_);
  tables_->isRefusedKnown = false;
}

std::optional<bool> Gate::isRefused(std::uint64_t user) {
  const Lock lock(tables_);
  if (!tables_->isRefusedKnown) return std::nullopt;
  if (tables_->refusedCount > kMostRefused) return true;
  const std::uint64_t* const begin = tables_->refused.data();
  return std::find(begin, begin + tables_->refusedCount, user) != begin + tables_->refusedCount;
}

bool Gate::isGranted(const SignInTag& tag, std::int64_t now) {
  const Lock lock(tables_);
  if (!tables_->isRefusedKnown || tables_->refusedCount != 0) return false;
  const Remembered* known = tables_->find(tag, now);
  return known != nullptr && now < known->renewed;
}

Entry Gate::enter(const SignInTag& tag, const Client& client, bool isNew, std::int64_t now) {
  const Lock lock(tables_);
  Entry entry;
  Remembered* known = isNew ? nullptr : tables_->find(tag, now);
  if (known != nullptr) {
    entry.kind = Entry::Kind::Granted;
    if (now < known->renewed) return entry;
  } else {
    const std::int64_t wait = tables_->slowed(client, now);
    if (wait > 0) {
      entry.kind = Entry::Kind::Slowed;
      entry.retryAfter = static_cast<int>((wait + kSecond - 1) / kSecond);
      return entry;
    }
    for (const Check& check : tables_->checks) {
      if (!isHeld(check.owner, check.begun, now) || !isSame(check.tag, tag)) continue;
      for (Seat& seat : tables_->seats) {
        if (isHeld(seat.owner, seat.taken, now)) continue;
        seat = {::getpid(), now};
        entry.kind = Entry::Kind::Wait;
        entry.slot = static_cast<size_t>(&check - tables_->checks.data());
        entry.number = check.number;
        entry.seat = static_cast<size_t>(&seat - tables_->seats.data());
        return entry;
      }
      return entry;
    }
  }
  Check* check = tables_->freeCheck(client.address, now);
  if (check == nullptr) return entry;
  *check = {::getpid(), now, client.address, ++tables_->lastNumber, tag, CheckResult::Unknown};
  if (known != nullptr) known->renewed = known->until;
  entry.kind = Entry::Kind::Check;
  entry.slot = static_cast<size_t>(check - tables_->checks.data());
  entry.number = check->number;
  return entry;
}

bool Gate::isRemembered(const SignInTag& tag, std::int64_t now) {
  const Lock lock(tables_);
  return tables_->find(tag, now) != nullptr;
}

std::int64_t Gate::refuse(const Client& client, std::int64_t took, std::int64_t now) {
  const Lock lock(tables_);
  if (tables_->findFamiliar(client.both) != nullptr) {
    tables_->count(client.both, kOfFamiliar, now);
  } else {
    tables_->count(client.address, kOfAddress, now);
    tables_->count(client.user, kOfUser, now);
  }
  if (now - tables_->longestRefusalAt > kRefusalKept) tables_->longestRefusal = 0;
  if (took > tables_->longestRefusal) {
    tables_->longestRefusal = took;
    tables_->longestRefusalAt = now;
  }
  const std::int64_t steps = (tables_->longestRefusal + kRefusalStep - 1) / kRefusalStep;
  return std::max(kUsualRefusal, steps * kRefusalStep);
}

void Gate::finish(const Entry& entry, const SignInTag& tag, const Client& client,
                  CheckResult result, std::int64_t now) {
  const Lock lock(tables_);
  if (result == CheckResult::Right) {
    tables_->remember(tag, now);
    tables_->makeFamiliar(client.both, now);
  } else if (result == CheckResult::Wrong) {
    if (Remembered* known = tables_->find(tag, now)) known->until = 0;
  }
  Check& check = tables_->checks.at(entry.slot);
  if (check.number != entry.number) return;
  check.owner = 0;
  check.result = result;
}

bool Gate::outcome(const Entry& entry, std::int64_t now, CheckResult* result) {
  const Lock lock(tables_);
  const Check& check = tables_->checks.at(entry.slot);
  const bool isLast = check.number == entry.number;
  if (isLast && isHeld(check.owner, check.begun, now)) return false;
  *result = isLast ? check.result : CheckResult::Unknown;
  tables_->seats.at(entry.seat).owner = 0;
  return true;
}

}  // namespace tessel
