// What a command has told anybody survives a power cut.
#include <iostream>

#include "tests/faults/scenario.h"

namespace {

class Durability : public testing::TestWithParam<Scenario> {};

TEST_P(Durability, IsThereBeforeAnybodyIsTold) {
  const FaultHost host(GetParam());
  EXPECT_EQ(firstCallBeforeItsSync(host.calls), "");
  std::cout << GetParam() << ": " << host.calls.size() << " calls in order\n";
}

INSTANTIATE_TEST_SUITE_P(Fault, Durability, testing::ValuesIn(scenarios()),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(DurabilityChecker, SeesEachMissingSync) {
  const std::vector<std::string> steps{
      R"(openat(AT_FDCWD, "/a/.tessel-x", O_RDWR|O_CREAT, 0600) = 3)",
      R"(write(3, "x", 1) = 1)",
      R"(fsync(3) = 0)",
      R"(rename("/a/.tessel-x", "/a/b") = 0)",
      R"(openat(AT_FDCWD, "/a", O_RDONLY) = 4)",
      R"(fsync(4) = 0)",
      R"(write(1, "done", 4) = 4)",
  };
  const std::vector<std::string> verdicts{"", "", steps[3] + " before the sync of /a/.tessel-x",
                                          "", "", steps[6] + " before the sync of /a"};
  for (size_t left = 0; left < steps.size(); ++left) {
    if (!steps[left].starts_with("fsync")) continue;
    std::string trace;
    for (size_t i = 0; i < steps.size(); ++i) trace += i == left ? "" : steps[i] + "\n";
    EXPECT_EQ(firstCallBeforeItsSync(parseTrace(trace)), verdicts[left]);
  }
}

}  // namespace
