// The gate that Apache's processes share: what is remembered, checked, waited for and slowed down.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/debian/mod_tessel_sign_in/gate.h"
#include "host/debian/mod_tessel_sign_in/memberships.h"
#include "host/debian/mod_tessel_sign_in/open_accounts.h"

namespace tessel {
namespace {

using Kind = Entry::Kind;

constexpr std::int64_t kStart = 1'000'000;

class GateTest : public testing::Test {
 protected:
  GateTest() { EXPECT_TRUE(gate_.setRefused({})); }
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
  EXPECT_EQ(gate_.isRefused(1), true);
  EXPECT_EQ(gate_.isRefused(2), false);
  EXPECT_FALSE(gate_.isGranted(tag("right"), kStart));
  gate_.forgetRefused();
  EXPECT_EQ(gate_.isRefused(1), std::nullopt);
  EXPECT_TRUE(gate_.setRefused({}));
  gate_.forgetRefused();
  EXPECT_FALSE(gate_.isGranted(tag("right"), kStart));
  EXPECT_TRUE(gate_.setRefused({}));
  EXPECT_TRUE(gate_.isGranted(tag("right"), kStart));
  EXPECT_EQ(Gate(Gate::makeMemory()).isRefused(2), std::nullopt);
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
  const auto isMember = [&](const char* user, const char* group) {
    const auto answer = memberships.isMember(user, group);
    return answer ? std::optional(*answer) : std::nullopt;
  };
  rlimit few{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &few), 0);
  const rlimit all = few;
  few.rlim_cur = 0;
  for (int i = 0; i < 3; ++i) {
    // Without a descriptor nothing can be told that is not known yet, and that is not remembered.
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, i == 0 ? &few : &all), 0);
    const auto told = [&](bool answer) { return i == 0 ? std::nullopt : std::optional(answer); };
    EXPECT_EQ(isMember("root", "root"), told(true)) << i;
    EXPECT_EQ(isMember("nobody", "root"), told(false)) << i;
    EXPECT_EQ(isMember("root", "no such group"), told(false)) << i;
    EXPECT_EQ(isMember("no such user", "root"), told(false)) << i;
  }
}

TEST(OpenAccounts, AreThoseWithoutAPassword) {
  using Names = std::vector<std::string>;
  const std::string file = testing::TempDir() + "/accounts";
  const std::string many(10'000, 'x');
  for (const auto& [content, names] : std::vector<std::pair<std::string, Names>>{
           {"", {}},
           {"a:*:1\nb::1:\nc:!:", {"b"}},
           {"a::\n\n:\nb\n" + many + "::\nc::", {"a", many, "c"}},
       }) {
    std::ofstream(file) << content;
    const auto open = openAccounts(file);
    ASSERT_TRUE(open);
    EXPECT_EQ(*open, names) << content;
  }
  ASSERT_EQ(std::remove(file.c_str()), 0);
  EXPECT_TRUE(openAccounts(file));
  // Opened and never read to its end.
  for (const char* unreadable : {"/etc", "/proc/self/mem"}) EXPECT_FALSE(openAccounts(unreadable));
}

TEST(AccountFiles, MayHaveAnyTime) {
  const std::string file = testing::TempDir() + "/times";
  std::ofstream(file) << "";
  for (const std::time_t seconds : {std::time_t{20'000'000'000}, std::time_t{-20'000'000'000}}) {
    const std::array<timespec, 2> times{timespec{seconds, 1}, timespec{seconds, 1}};
    if (::utimensat(AT_FDCWD, file.c_str(), times.data(), 0) != 0) GTEST_SKIP();
    EXPECT_EQ(fileStamp(file.c_str())[3] > 0, seconds > 0);
  }
}

}  // namespace
}  // namespace tessel
