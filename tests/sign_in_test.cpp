// The gate that Apache's processes share: what is remembered, checked, waited for and slowed down.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "host/debian/mod_tessel_sign_in/gate.h"
#include "host/debian/mod_tessel_sign_in/memberships.h"

namespace tessel {
namespace {

using Kind = Entry::Kind;

constexpr std::int64_t kStart = 1'000'000;

class GateTest : public testing::Test {
 protected:
  SignInTag tag(const std::string& text) { return *gate_.tagOf(text); }
  Entry enter(const std::string& text, std::int64_t now, bool isNew = false) {
    return gate_.enter(tag(text), client_, isNew, now);
  }
  void check(const std::string& text, CheckResult result, std::int64_t now) {
    const Entry entry = enter(text, now);
    ASSERT_EQ(entry.kind, Kind::Check) << text;
    gate_.finish(entry, tag(text), client_, result, now);
  }

  Gate gate_{Gate::makeMemory()};
  Client client_{1, 2, 3};
};

TEST_F(GateTest, RemembersForAMinuteWhatWasRightAndNothingElse) {
  client_.address = 0;
  check("right", CheckResult::Right, kStart);
  check("wrong", CheckResult::Wrong, kStart);
  check("unknown", CheckResult::Unknown, kStart);
  EXPECT_EQ(enter("right", kStart + Gate::kRenewed - 1).kind, Kind::Granted);
  EXPECT_TRUE(gate_.isGranted(tag("right"), kStart + Gate::kRenewed - 1));
  EXPECT_FALSE(gate_.isGranted(tag("right"), kStart + Gate::kRenewed));
  EXPECT_FALSE(gate_.isGranted(tag("wrong"), kStart));
  EXPECT_TRUE(gate_.setRefused({1}));
  EXPECT_FALSE(gate_.isGranted(tag("right"), kStart));
  EXPECT_TRUE(gate_.setRefused({}));
  for (const char* other : {"wrong", "unknown", "never seen"}) {
    EXPECT_EQ(enter(other, kStart).kind, Kind::Check) << other;
  }
  // Who may not be remembered is checked, right or not.
  EXPECT_EQ(enter("right", kStart, true).kind, Kind::Check);
  // One request renews it, the others need not wait for that one.
  const Entry renewal = enter("right", kStart + Gate::kRenewed);
  EXPECT_EQ(renewal.kind, Kind::Check);
  EXPECT_EQ(enter("right", kStart + Gate::kRemembered - 1).kind, Kind::Granted);
  gate_.finish(renewal, tag("right"), client_, CheckResult::Wrong, kStart + Gate::kRenewed);
  EXPECT_FALSE(gate_.isRemembered(tag("right"), kStart + Gate::kRenewed));
  check("another", CheckResult::Right, kStart);
  EXPECT_FALSE(gate_.isRemembered(tag("another"), kStart + Gate::kRemembered));
  EXPECT_NE(*Gate(Gate::makeMemory()).tagOf("right"), tag("right"));
}

TEST_F(GateTest, BoundsTheChecksOfAnAddressAndOfAll) {
  std::vector<Entry> entries;
  for (size_t i = 0; i < Gate::kChecks; ++i) {
    client_.address = 10 + i / Gate::kChecksOfAddress;
    entries.push_back(enter(std::to_string(i), kStart));
    EXPECT_EQ(entries.back().kind, Kind::Check) << i;
    if ((i + 1) % Gate::kChecksOfAddress == 0) {
      EXPECT_EQ(enter("more", kStart).kind, Kind::Busy) << i;
    }
  }
  client_.address = 99;
  EXPECT_EQ(enter("other", kStart).kind, Kind::Busy);
  // The same password of the same user waits for the check that runs, within a bound.
  std::vector<Entry> waiting;
  for (size_t i = 0; i < Gate::kWaiting; ++i) {
    waiting.push_back(enter("0", kStart));
    EXPECT_EQ(waiting.back().kind, Kind::Wait) << i;
  }
  EXPECT_EQ(enter("0", kStart).kind, Kind::Busy);
  CheckResult result = CheckResult::Unknown;
  EXPECT_FALSE(gate_.outcome(waiting[0], kStart, &result));
  gate_.finish(entries[0], tag("0"), client_, CheckResult::Wrong, kStart);
  EXPECT_TRUE(gate_.outcome(waiting[0], kStart, &result));
  EXPECT_EQ(result, CheckResult::Wrong);
  EXPECT_EQ(enter("other", kStart).kind, Kind::Check);
  // Its place has been taken by another check, whose result is none of its business.
  EXPECT_TRUE(gate_.outcome(waiting[1], kStart, &result));
  EXPECT_EQ(result, CheckResult::Unknown);
}

TEST_F(GateTest, SlowsDownFailuresButNobodyWhereTheyHaveSignedIn) {
  const Client home{0, 2, 4};  // the same user elsewhere, on this machine
  const Entry entry = gate_.enter(tag("home"), home, false, kStart);
  gate_.finish(entry, tag("home"), home, CheckResult::Right, kStart);
  std::int64_t now = kStart + Gate::kRemembered;
  int failures = 0;
  for (; failures < 100; ++failures) {
    const Entry next = gate_.enter(tag("x"), client_, true, now);
    if (next.kind == Kind::Slowed) {
      EXPECT_EQ(next.retryAfter, Gate::kOfAddress.forgiven / 1000);
      break;
    }
    gate_.refuse(client_, 0, now);
    gate_.finish(next, tag("x"), client_, CheckResult::Wrong, now);
  }
  EXPECT_EQ(failures, Gate::kOfAddress.open);
  // From many addresses: the user is slowed down, but not at home.
  for (; failures < 100; ++failures) {
    client_.address = 100 + static_cast<std::uint64_t>(failures);
    const Entry next = gate_.enter(tag("x"), client_, true, now);
    if (next.kind == Kind::Slowed) break;
    gate_.refuse(client_, 0, now);
    gate_.finish(next, tag("x"), client_, CheckResult::Wrong, now);
  }
  EXPECT_EQ(failures, Gate::kOfUser.open);
  EXPECT_EQ(gate_.enter(tag("x"), home, true, now).kind, Kind::Check);
  now += Gate::kOfUser.forgiven;
  EXPECT_EQ(gate_.enter(tag("y"), client_, true, now).kind, Kind::Check);
}

TEST_F(GateTest, AnswersEveryRefusalAsLateAsTheLatest) {
  EXPECT_EQ(gate_.refuse(client_, 0, kStart), 3000);
  EXPECT_EQ(gate_.refuse(client_, 2600, kStart), 3000);
  EXPECT_EQ(gate_.refuse(client_, 4200, kStart), 4500);
  EXPECT_EQ(gate_.refuse(client_, 0, kStart + 60'000), 4500);
  EXPECT_EQ(gate_.refuse(client_, 0, kStart + 700'000), 3000);
}

TEST_F(GateTest, OutlivesKilledProcesses) {
  const std::int64_t now = Gate::now();
  for (int round = 0; round < 20; ++round) {
    const pid_t child = ::fork();
    if (child == 0) {
      for (std::uint64_t i = 0;; ++i) {
        client_.address = i;
        const std::string text = std::to_string(i);
        const Entry entry = enter(text, now);
        if (i % 2 == 0) gate_.finish(entry, tag(text), client_, CheckResult::Right, now);
      }
    }
    ::usleep(10'000);
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    const std::string text = "after " + std::to_string(round);
    check(text, CheckResult::Right, now);
    EXPECT_EQ(enter(text, now).kind, Kind::Granted);
  }
}

TEST(Memberships, AreThoseOfTheSystem) {
  AccountFiles files;
  Memberships memberships(files);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(memberships.isMember("root", "root"));
    EXPECT_FALSE(memberships.isMember("nobody", "root"));
    EXPECT_FALSE(memberships.isMember("root", "no such group"));
    EXPECT_FALSE(memberships.isMember("no such user", "root"));
  }
}

}  // namespace
}  // namespace tessel
