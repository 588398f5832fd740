// The command line: usage, the root check, the installation checks, exit statuses.
#include <string>
#include <utility>
#include <vector>

#include "tests/sandbox.h"

namespace {

const std::string kUsage =
    "Tessel control utility.\nUsage: tesselctl [ start | stop | status | shares | [un]share "
    "<path>| diagnose ]\n";
const std::string kCannotProceed = red("Cannot proceed.") + "\n";

TEST(CommandLine, UsageComesBeforeEveryCheck) {
  Sandbox host;
  host.user = 1000;
  host.remove("/etc/tessel");
  const std::vector<std::vector<std::string>> vectors{
      {}, {"-h"}, {"status", "-h"}, {"share", "-h"}, {"status", "a", "b"}, {"a", "b", "c", "-h"}};
  for (const auto& arguments : vectors) {
    const Outcome outcome = host.tesselctl(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, kUsage + "\n");
    EXPECT_EQ(outcome.errors, "");
  }
  // The program's own name counts as an argument, too.
  for (const std::string name : {"webshare", "-h"}) {
    host.makeLink("/usr/sbin/" + name, "tesselctl");
    EXPECT_PRED2(contains, host.shell("'" + name + "' " + (name == "-h" ? "status" : "")).output,
                 "Usage: " + name + " [");
  }
}

TEST(CommandLine, EveryWordNeedsRoot) {
  Sandbox host;
  host.user = 1000;
  host.remove("/etc/tessel");
  for (const char* word : {"status", "start", "shares", "unshare", "STATUS", "--help", ""}) {
    const Outcome outcome = host.tesselctl({word});
    EXPECT_EQ(outcome.status, 1) << word;
    EXPECT_EQ(outcome.output, "") << word;
    EXPECT_EQ(outcome.errors, red("Must run as root") + "\n") << word;
  }
}

TEST(CommandLine, UnknownWordsPrintTheUsageWithoutTheEmptyLine) {
  Sandbox host;
  for (const char* word : {"STATUS", "nonsense", ""}) {
    const Outcome outcome = host.tesselctl({word, "more"});
    EXPECT_EQ(outcome.status, 0) << word;
    EXPECT_EQ(outcome.output, kUsage) << word;
    EXPECT_EQ(outcome.errors, "") << word;
  }
  EXPECT_EQ(host.calls(), "");
}

TEST(CommandLine, StatusAsksOnlyWhetherTheConfigurationIsActive) {
  const Sandbox host;
  host.setApacheLoaded(true);
  for (const auto& [laidOut, word] : std::vector<std::pair<std::string, std::string>>{
           {":", "disabled"},
           {": > $active", "enabled"},
           {"mkdir $active", "enabled"},
           {"ln -s /etc/tessel/httpd_tessel.conf $active", "enabled"},
           {"ln -s /nowhere $active", "disabled"}}) {
    host.shell("active=/etc/apache2/other/httpd_tessel.conf; rm -rf $active; " + laidOut);
    const Outcome outcome = host.tesselctl({"status", "ignored"});
    EXPECT_EQ(outcome.output, word + "\n") << laidOut;
    EXPECT_EQ(outcome.errors, "") << laidOut;
    EXPECT_EQ(outcome.status, 0) << laidOut;
  }
  EXPECT_EQ(host.calls(), "");
}

TEST(CommandLine, EveryWordStopsAtTheFirstProblemOfTheInstallation) {
  const std::string missing = "Tessel config file /etc/tessel/tessel.plist is missing.\n";
  const std::string malformed = "Tessel config file /etc/tessel/tessel.plist is malformed.\n";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"rm -r /etc/tessel", "Main Tessel config directory /etc/tessel is missing."},
      {"rm httpd_tessel.conf tessel.plist", "Apache config file httpd_tessel.conf is missing.\n"},
      {"rm tessel.plist", missing},
      {"ln -sf /nowhere tessel.plist", missing},
      {": > tessel.plist", malformed},
      {"echo '<plist><dict></dict>' > tessel.plist", malformed},
      {"echo '<plist><array></array></plist>' > tessel.plist", malformed},
      {"cat tessel.plist tessel.plist > twice; mv twice tessel.plist", malformed},
      {"rm tessel.plist; mkdir tessel.plist", malformed},
      {"rm tessel.plist; mkfifo tessel.plist", malformed},
  };
  for (const auto& [damage, message] : cases) {
    const Sandbox host;
    ASSERT_EQ(host.shell("cd /etc/tessel; " + damage).status, 0) << damage;
    for (const char* word : {"status", "start", "nonsense"}) {
      const Outcome outcome = host.tesselctl({word});
      EXPECT_EQ(outcome.status, 2) << damage;
      EXPECT_EQ(outcome.output, "") << damage;
      EXPECT_EQ(outcome.errors, red(message) + "\n" + kCannotProceed) << damage;
    }
    EXPECT_EQ(host.calls(), "") << damage;
  }
}

TEST(CommandLine, WorksWithoutStandardStreamsAndReaders) {
  Sandbox host;
  EXPECT_EQ(host.shell("tesselctl status <&- >&- 2>&-").status, 0);
  // With nobody reading, and with a full disk behind standard output, the work is still done.
  EXPECT_EQ(host.shell("trap '' CHLD; { tesselctl start; echo $? > /tmp/rc; } | true; sleep 0.3;"
                       "cat /tmp/rc")
                .output,
            "0\n");
  EXPECT_TRUE(host.apacheLoaded());
}

}  // namespace
