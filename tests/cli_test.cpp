// The command line: usage, the root check, the installation checks, exit statuses.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <string>
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
}

TEST(CommandLine, UsageNamesTheProgramAsInvoked) {
  Sandbox host;
  host.makeLink("/usr/sbin/webshare", "tesselctl");
  EXPECT_NE(host.run({"/usr/sbin/webshare"}).output.find("Usage: webshare ["), std::string::npos);
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
  const std::string active = "/etc/apache2/other/httpd_tessel.conf";
  Sandbox host;
  const auto expectStatus = [&](const std::string& word, const char* why) {
    const Outcome outcome = host.tesselctl({"status", "ignored"});
    EXPECT_EQ(outcome.output, word + "\n") << why;
    EXPECT_EQ(outcome.errors, "") << why;
    EXPECT_EQ(outcome.status, 0) << why;
  };
  host.setApacheLoaded(true);
  expectStatus("disabled", "nothing there");
  host.write(active, "");
  expectStatus("enabled", "a plain file");
  host.remove(active);
  host.makeFolder(active);
  expectStatus("enabled", "a folder");
  host.remove(active);
  host.makeLink(active, "/etc/tessel/httpd_tessel.conf");
  expectStatus("enabled", "a link");
  host.remove(active);
  host.makeLink(active, "/nowhere");
  expectStatus("disabled", "a dangling link");
  EXPECT_EQ(host.calls(), "");
}

struct InstallationCase {
  const char* name;
  void (*damage)(const Sandbox& host);
  std::string message;
};

std::ostream& operator<<(std::ostream& out, const InstallationCase& tried) {
  return out << tried.name;
}

std::string deeplyNested(size_t levels) {
  std::string text = "<plist><dict><key>a</key>";
  for (size_t i = 0; i < levels; ++i) text += "<array>";
  for (size_t i = 0; i < levels; ++i) text += "</array>";
  return text + "</dict></plist>";
}

const std::string kMalformed = "Tessel config file /etc/tessel/tessel.plist is malformed.\n";
const char* const kConfig = "/etc/tessel/tessel.plist";

const std::vector<InstallationCase> kInstallationCases{
    {"no folder", [](const Sandbox& host) { host.remove("/etc/tessel"); },
     "Main Tessel config directory /etc/tessel is missing."},
    {"no master configuration",
     [](const Sandbox& host) { host.remove("/etc/tessel/httpd_tessel.conf"); },
     "Apache config file httpd_tessel.conf is missing.\n"},
    {"neither configuration",
     [](const Sandbox& host) {
       host.remove("/etc/tessel/httpd_tessel.conf");
       host.remove(kConfig);
     },
     "Apache config file httpd_tessel.conf is missing.\n"},
    {"no configuration", [](const Sandbox& host) { host.remove(kConfig); },
     "Tessel config file /etc/tessel/tessel.plist is missing.\n"},
    {"dangling link",
     [](const Sandbox& host) {
       host.remove(kConfig);
       host.makeLink(kConfig, "/nowhere");
     },
     "Tessel config file /etc/tessel/tessel.plist is missing.\n"},
    {"empty", [](const Sandbox& host) { host.write(kConfig, ""); }, kMalformed},
    {"cut off", [](const Sandbox& host) { host.write(kConfig, "<plist><dict></dict>"); },
     kMalformed},
    {"an array", [](const Sandbox& host) { host.write(kConfig, "<plist><array></array></plist>"); },
     kMalformed},
    {"two lists",
     [](const Sandbox& host) {
       host.write(kConfig, "<plist><dict/></plist><plist><dict/></plist>");
     },
     kMalformed},
    {"noise", [](const Sandbox& host) { host.write(kConfig, std::string("\0\xFF<<>&", 6)); },
     kMalformed},
    {"50 MB",
     [](const Sandbox& host) {
       host.write(kConfig,
                  dictionary("<key>a</key><string>" + std::string(50'000'000, 'x') + "</string>"));
     },
     kMalformed},
    {"nested 100,000 deep", [](const Sandbox& host) { host.write(kConfig, deeplyNested(100'000)); },
     kMalformed},
    {"a folder",
     [](const Sandbox& host) {
       host.remove(kConfig);
       host.makeFolder(kConfig);
     },
     kMalformed},
    {"a pipe",
     [](const Sandbox& host) {
       host.remove(kConfig);
       ASSERT_EQ(mkfifo(host.outside(kConfig).c_str(), 0600), 0);
     },
     kMalformed},
};

class Installation : public testing::TestWithParam<InstallationCase> {};

TEST_P(Installation, EveryWordStopsAtTheFirstProblem) {
  Sandbox host;
  GetParam().damage(host);
  for (const char* word : {"status", "start", "nonsense"}) {
    const Outcome outcome = host.tesselctl({word});
    EXPECT_EQ(outcome.status, 2) << word;
    EXPECT_EQ(outcome.output, "") << word;
    EXPECT_EQ(outcome.errors, red(GetParam().message) + "\n" + kCannotProceed) << word;
  }
  EXPECT_EQ(host.calls(), "");
}

INSTANTIATE_TEST_SUITE_P(Table, Installation, testing::ValuesIn(kInstallationCases),
                         [](const auto& tried) {
                           std::string name = tried.param.name;
                           std::replace_if(
                               name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
                           return name;
                         });

TEST(CommandLine, ReadsNestingUpToTheLimit) {
  Sandbox host;
  host.write(kConfig, deeplyNested(511));
  EXPECT_EQ(host.tesselctl({"status"}).status, 0);
  host.write(kConfig, deeplyNested(512));
  EXPECT_EQ(host.tesselctl({"status"}).status, 2);
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
