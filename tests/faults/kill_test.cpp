// Each command is killed at each call that changes a file, starts a child or ends the run.
#include <algorithm>
#include <iostream>
#include <regex>

#include "tests/faults/scenario.h"

namespace {

const std::string kDebris = ".*/(\\.tessel-|System\\.keychain-journal) .*";

class Kill : public testing::TestWithParam<Scenario> {};

TEST_P(Kill, LeavesTheOldOrTheNewAndIsDoneByDoingItAgain) {
  const Scenario& scenario = GetParam();
  const FaultHost host(scenario);
  const std::string unfinished = "(" + scenario.unfinished + ") .*";
  const std::string half =
      kDebris + "|.*/System.keychain .*|.*\\.(key\\.pem|sh) [67]00 |" + unfinished +
      (scenario.between == "none"
           ? ""
           : "|" + kRecordFolder + "/Projects.plist 644 .*smb_shared.*</plist> ");
  size_t points = 0;
  std::ptrdiff_t debris = 0;
  for (const Call& call : host.calls) {
    if (!call.changes() || isBetweenLikes(host.calls, call)) continue;
    SCOPED_TRACE(call.line);
    ++points;
    const std::vector<int> statuses = host.runWith(
        "strace -qq -o /tmp/trace -e trace=" + call.name + " -e inject=" + call.name +
            ":signal=KILL:when=" + std::to_string(call.time),
        "keep /killed; " + scenario.command + " > /tmp/out 2>&1; echo $?; keep /redone; {\n" +
            scenario.inverse + "\n} > /tmp/undone 2>&1; echo $?");
    ASSERT_EQ(statuses.size(), 3U);
    EXPECT_EQ(statuses[0], 128 + 9);
    const FaultHost::State killed = host.state("/killed");
    host.expectEither(killed, host.before, host.after, half);
    const bool wasDone = killed.shown == host.after.shown && host.before.shown != host.after.shown;
    EXPECT_EQ(statuses[1], wasDone ? host.statusAgain : 0) << host.read("/tmp/out");
    // What a creation that was killed has stored is never removed.
    FaultHost::State redone = host.state("/redone");
    redone.shown =
        std::regex_replace(redone.shown, std::regex("(private|public) key - - .*\n"), "");
    host.expectEither(redone, host.after, host.again, kDebris + "|" + unfinished);
    EXPECT_EQ(statuses[2], 0) << host.read("/tmp/undone");
    debris += std::count_if(killed.items.begin(), killed.items.end(), [](const std::string& item) {
      return item.find("/.tessel- ") != std::string::npos;
    });
  }
  EXPECT_GE(points, 5U);
  std::cout << scenario << ": killed at " << points << " points, temporary files left: " << debris
            << "\n";
}

INSTANTIATE_TEST_SUITE_P(Fault, Kill, testing::ValuesIn(scenarios()),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
