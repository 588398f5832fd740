// start and stop without TLS: files, environment, launch jobs, and what each step ignores.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/share_records.h"

namespace {

const std::string kActive = "/etc/apache2/other/httpd_tessel.conf";
const std::string kInactive = kActive + ".inactive";
const std::string kMaster = "/etc/tessel/httpd_tessel.conf";
const std::string kMarker = "/etc/tessel/.tesselStartedApache";
const std::string kEnvironment = "/etc/apache2/env.plist";
const std::string kList = "launchctl [list] [org.apache.httpd]\n";
const std::string kJob = "[-w] [/System/Library/LaunchDaemons/org.apache.httpd.plist]\n";
const std::string kLoad = "launchctl [load] " + kJob;
const std::string kUnload = "launchctl [unload] " + kJob;

void expectSilentSuccess(const Outcome& outcome) {
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "");
}

TEST(Start, FreshHost) {
  Sandbox host;
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.linkTarget(kActive), kMaster);
  EXPECT_EQ(host.mode(kEnvironment), 0644U);
  EXPECT_EQ(host.environmentValue("TESSEL_SERVER_PORT"), "8080");
  EXPECT_EQ(host.environmentValue("TESSEL_SERVER_NAME"), Sandbox::hostName());
  EXPECT_EQ(host.environmentValue("TESSEL_SERVER_ADDR"), "(none)");
  EXPECT_EQ(host.read(kMarker), "");
  EXPECT_EQ(host.mode(kMarker), 0644U);
  EXPECT_EQ(host.calls(), kList + kLoad);
  EXPECT_EQ(host.names("/etc/apache2"), (std::vector<std::string>{"env.plist", "other"}));
}

TEST(Start, MovesTheParkedConfigurationAsItIsAndLeavesAnActiveOneAlone) {
  Sandbox host;
  host.write(kInactive, "edited by hand", 0600);
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.mode(kActive), 0600U);
  EXPECT_FALSE(host.exists(kInactive));
  host.write(kInactive, "parked");
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.read(kActive), "edited by hand");
  EXPECT_EQ(host.read(kInactive), "parked");
}

TEST(Start, CopiesTheConfigurationIntoTheEnvironment) {
  struct Case {
    const char* key;
    const char* value;
    const char* expected;
  };
  const std::string own = Sandbox::hostName();
  const std::vector<Case> cases{
      {"ServerPort", "<integer>81</integer>", "81"},
      {"ServerPort", "<string> 8 &amp; 1</string>", " 8 &amp; 1"},
      {"ServerPort", "<integer>18446744073709551615</integer>", "18446744073709551615"},
      {"ServerPort", "<array><integer>8</integer></array>", "(\n    8\n)"},
      {"ServerPort", nullptr, "(none)"},
      {"ServerAddr", "<string/>", ""},
      {"ServerAddr", nullptr, "(none)"},
      {"AccessGroup", "<string>a &lt;b&gt; \"c\" é %n\n</string>", "a &lt;b&gt; \"c\" é %n\n"},
      {"AccessGroup", nullptr, "(none)"},
      {"TESSEL_SERVER_NAME", "<string>own</string>", "as it stood"},
      {"TESSEL_SERVER_NAME", "<integer>0</integer>", "as it stood"},
      {"TESSEL_SERVER_NAME", "<string/>", own.c_str()},
      {"TESSEL_SERVER_NAME", nullptr, own.c_str()},
      {"ServerSSL", nullptr, "(none)"},
      {"ServerSSL", "<string>no</string>", "(none)"},
      {"ServerSSL", "<array><true/></array>", "(none)"},
  };
  const std::map<std::string, std::string> names{{"ServerPort", "TESSEL_SERVER_PORT"},
                                                 {"ServerAddr", "TESSEL_SERVER_ADDR"},
                                                 {"AccessGroup", "TESSEL_ACCESS_GROUP"},
                                                 {"ServerSSL", "-D TESSEL_SSL"},
                                                 {"TESSEL_SERVER_NAME", "TESSEL_SERVER_NAME"}};
  Sandbox host;
  for (const auto& [key, value, expected] : cases) {
    std::string old;
    for (const auto& name : names)
      old += "<key>" + name.second + "</key><string>as it stood</string>";
    host.setEnvironment(old);
    host.configure(value == nullptr ? "" : "<key>" + std::string(key) + "</key>" + value);
    expectSilentSuccess(host.tesselctl({"start"}));
    EXPECT_EQ(host.environmentValue(names.at(key)), expected) << key;
  }
}

TEST(Start, KeepsWhatOthersPutIntoTheEnvironment) {
  const std::string others =
      "\t<key></key>\n\t<string></string>\n"
      "\t<key>-D ORRIN \"x\" &lt;&amp;&gt; é\n</key>\n\t<string>  a\n\tb  </string>\n"
      "\t<key>big</key>\n\t<integer>18446744073709551615</integer>\n"
      "\t<key>data</key>\n\t<data>\n\tAAECAwQFBgcICQoLDA0ODw==\n\t</data>\n"
      "\t<key>date</key>\n\t<date>1890-02-28T23:59:59Z</date>\n"
      "\t<key>nested</key>\n\t<dict>\n\t\t<key>a</key>\n\t\t<array>\n\t\t\t<true/>\n\t\t</array>\n"
      "\t</dict>\n\t<key>real</key>\n\t<real>0.1</real>\n\t<key>whole</key>\n\t<real>443</real>\n";
  Sandbox host;
  host.setEnvironment(others);
  chmod(host.outside(kEnvironment).c_str(), 0640);
  const bool mayChangeOwner = geteuid() == 0;
  ASSERT_TRUE(!mayChangeOwner || chown(host.outside(kEnvironment).c_str(), 123, 456) == 0);
  expectSilentSuccess(host.tesselctl({"start"}));

  EXPECT_PRED2(contains, host.read(kEnvironment), "<dict>\n" + others);
  EXPECT_EQ(host.mode(kEnvironment), 0640U);
  struct stat status {};
  ASSERT_EQ(stat(host.outside(kEnvironment).c_str(), &status), 0);
  EXPECT_TRUE(!mayChangeOwner || (status.st_uid == 123 && status.st_gid == 456));
}

TEST(Start, ReadsAnEnvironmentInAnyFormOfXML) {
  Sandbox host;
  host.write(kEnvironment,
             "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<!DOCTYPE plist SYSTEM \"nowhere\">"
             "<plist><dict id=\"1\"><key lang=\"fr\">caf\xE9</key><integer>0081</integer>"
             "<key>twice</key><true/><key>twice</key><false/></dict></plist>");
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_PRED2(contains, host.read(kEnvironment),
               "<plist version=\"1.0\">\n<dict>\n\t<key>café</key>\n\t<integer>81</integer>\n"
               "\t<key>twice</key>\n\t<true/>\n\t<key>twice</key>\n\t<false/>\n");
}

TEST(Start, LeavesAnEnvironmentThatXMLCannotHold) {
  const std::string environment = binaryRecord({{"-D OTHERS", {"a\x01z"}}});
  Sandbox host;
  host.write(kEnvironment, environment);
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.read(kEnvironment), environment);
  EXPECT_EQ(host.calls(), kList + kLoad);
}

TEST(Start, ReplacesAnUnusableEnvironment) {
  const std::vector<std::string> unusable{"", "<plist><array/></plist>",
                                          std::string(17 << 20, ' ')};
  Sandbox host;
  for (const std::string& content : unusable) {
    host.write(kEnvironment, content);
    expectSilentSuccess(host.tesselctl({"start"}));
    EXPECT_EQ(host.environmentValue("TESSEL_SERVER_PORT"), "8080");
  }
  host.remove(kEnvironment);
  host.makeLink(kEnvironment, "/nowhere");
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.linkTarget(kEnvironment), "");
  EXPECT_EQ(host.environmentValue("TESSEL_SERVER_PORT"), "8080");
}

TEST(Start, LetsOnlyTheMessagesOfLoadThroughAndKeepsTheirOrder) {
  Sandbox host;
  host.setApacheLoaded(true);
  host.write("/etc/launchctl.hook",
             "echo \"$1 out\"; echo \"$1 err\" >&2; [ $1 != load ] || exit 3");
  host.configure("");
  host.setEnvironment("<key>-D ORRIN_HAS_DEFAULT_PORTS</key><true/>");
  host.write("/etc/tessel/httpd_tessel_proxy.conf.inactive", "");
  EXPECT_EQ(host.merged("start; echo $?"),
            "load out\nload err\nConfigured Orrin to relay WebDAV traffic to Tessel.\n0\n");
}

TEST(Start, CountsAnythingButSuccessOfListAsNotLoaded) {
  for (const char* list : {"exit 7", "kill -9 $$", "kill -TERM $$", "no service manager"}) {
    Sandbox host;
    host.setApacheLoaded(true);
    host.write("/etc/launchctl.hook", std::string("[ $1 != list ] || ") + list);
    const bool isThere = list != std::string("no service manager");
    if (!isThere) host.remove("/bin/launchctl");
    expectSilentSuccess(host.tesselctl({"start"}));
    EXPECT_EQ(host.calls(), isThere ? kList + kLoad : "") << list;
    EXPECT_TRUE(host.exists(kMarker)) << list;
  }
}

TEST(Start, PrefersTheHostsAdapterWithTheSameArguments) {
  const std::string adapter = "/usr/libexec/tessel/host/bin/launchctl";
  Sandbox host;
  host.write(adapter, "#!/bin/sh\necho \"adapter $*\" >> /var/log/calls\n", 0755);
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.calls(),
            "adapter list org.apache.httpd\n"
            "adapter unload -w /System/Library/LaunchDaemons/org.apache.httpd.plist\n"
            "adapter load -w /System/Library/LaunchDaemons/org.apache.httpd.plist\n");
  host.write(adapter, "", 0644);  // not executable: no adapter
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.calls(), kList + kLoad);
}

TEST(Stop, LeavesApacheAsStartFoundIt) {
  struct Case {
    bool loaded;
    bool marker;
    std::string calls;
    bool markerAfter;
  };
  const std::vector<Case> cases{{true, true, kList + kUnload, false},
                                {true, false, kList + kUnload + kLoad, false},
                                {false, true, kList, true},
                                {false, false, kList, false}};
  for (const Case& tried : cases) {
    Sandbox host;
    host.makeLink(kActive, kMaster);
    host.setApacheLoaded(tried.loaded);
    if (tried.marker) host.write(kMarker, "");
    expectSilentSuccess(host.tesselctl({"stop"}));
    EXPECT_EQ(host.linkTarget(kInactive), kMaster);
    EXPECT_FALSE(host.exists(kActive));
    EXPECT_EQ(host.calls(), tried.calls);
    EXPECT_EQ(host.exists(kMarker), tried.markerAfter);
  }
}

TEST(Stop, FailsWithoutAConfigurationToPark) {
  const Sandbox host;
  host.setApacheLoaded(true);
  const Outcome outcome = host.tesselctl({"stop"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(outcome.errors.ends_with("No such file or directory\033[0m\n")) << outcome.errors;
  EXPECT_EQ(host.calls(), "");
}

TEST(Stop, RemovesPerUserJobsFirstWhateverHappens) {
  const std::string folder = "/Library/LaunchAgents/";
  const std::string job = "org.apache.httpd.tessel.user1-412.81.plist";
  const std::string odd = ".x %s org.apache.httpd.tessel";
  const std::string stuck = "org.apache.httpd.tessel.folder";
  Sandbox host;
  host.setApacheLoaded(true);
  host.write(kActive, "active");
  host.write(kInactive, "parked");
  host.write(folder + job, "");
  host.write(folder + odd, "");
  host.write(folder + stuck + "/full", "");
  host.write(folder + "org.apache.httpd.plist", "");
  host.write(folder + "ORG.APACHE.HTTPD.TESSEL", "");
  host.write("/etc/launchctl.hook", "echo noise; echo noise >&2; exit 1");

  const Outcome outcome = host.tesselctl({"stop"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_TRUE(outcome.output.ends_with("Already disabled; no further action taken\n"));
  EXPECT_TRUE(host.exists(kActive));
  const std::string calls = host.calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), '\n'), 3) << calls;
  for (const std::string& name : {job, odd, stuck}) {
    EXPECT_PRED2(contains, outcome.output, "Unloaded and removed: " + name + "\n");
    EXPECT_PRED2(contains, calls, "launchctl [unload] [-w] [" + folder + name + "]\n");
  }
  EXPECT_EQ(host.names(folder),
            (std::vector<std::string>{"ORG.APACHE.HTTPD.TESSEL", "org.apache.httpd.plist", stuck}));
}

TEST(Turn, IsWaitedForAndTheEnvironmentReadWhenItComes) {
  const std::string proxy = "/etc/tessel/httpd_tessel_proxy.conf";
  const std::string orrin = "<key>-D ORRIN_HAS_DEFAULT_PORTS</key><string></string>";
  for (const auto& [word, relays] : {std::pair("start", "Configured Orrin to relay"),
                                     {"stop", "Configured Orrin to stop relaying"}}) {
    Sandbox host;
    host.write(proxy + ".inactive", "");
    host.write("/tmp/changed", dictionary(orrin));
    if (word == std::string("stop")) {
      host.makeLink(kActive, kMaster);
      host.makeLink(proxy, proxy + ".inactive");
    }
    const Outcome outcome =
        host.shell("exec 9< /var/lib/tessel; flock 9; tesselctl " + std::string(word) +
                   " & sleep 0.5; cat /var/log/calls; cp /tmp/changed /etc/apache2/env.plist; "
                   "flock -u 9; wait");
    EXPECT_EQ(outcome.output, relays + std::string(" WebDAV traffic to Tessel.\n")) << word;
    EXPECT_EQ(outcome.errors, "cat: /var/log/calls: No such file or directory\n") << word;
    EXPECT_PRED2(contains, host.calls(), "harlowctl [reload]\n");
  }
}

// A run that hangs must not keep the administrator from turning the service off, nor an export.
TEST(Turn, ComesAfterHalfAMinuteAtLast) {
  Sandbox host;
  host.configure("<key>ServerSSL</key><true/><key>ServerName</key><string>localhost</string>");
  ASSERT_EQ(host.tesselctl({"start"}).status, 0);
  const Outcome outcome = host.shell(R"(
    flock /var/lib/tessel flock /Library/Keychains sleep 100 & holder=$!
    sleep 0.5
    timeout 60 tesselctl diagnose > /tmp/report 2> /tmp/said & report=$!
    timeout 60 tesselctl stop; echo $?; wait $report
    kill $holder; cat /tmp/said >&2)");
  EXPECT_EQ(outcome.output, "0\n");
  const std::string vain = "\\.\\.\\.\nIt does not end; going on without waiting for it\\.\n";
  const std::regex said("Waiting for .+, which is turning Tessel on or off" + vain +
                        "Waiting for .+, which uses the exported identity" + vain + "(.|\n)*");
  EXPECT_TRUE(std::regex_match(outcome.errors, said)) << outcome.errors;
  EXPECT_FALSE(host.exists(kActive));
  EXPECT_PRED2(contains, host.read("/tmp/report"), "Identity export succeeded\n");
}

TEST(Story, TwoStartsMakeApacheLookLikeSomebodyElses) {
  Sandbox host;
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_EQ(host.tesselctl({"status"}).output, "enabled\n");
  expectSilentSuccess(host.tesselctl({"stop"}));
  EXPECT_EQ(host.tesselctl({"status"}).output, "disabled\n");
  EXPECT_FALSE(host.apacheLoaded());
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_TRUE(host.exists(kMarker));
  (void)host.calls();
  expectSilentSuccess(host.tesselctl({"start"}));
  EXPECT_FALSE(host.exists(kMarker));
  EXPECT_EQ(host.calls(), kList + kUnload + kLoad);
  expectSilentSuccess(host.tesselctl({"stop"}));
  EXPECT_TRUE(host.apacheLoaded());
}

}  // namespace
