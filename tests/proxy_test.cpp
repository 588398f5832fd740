// Orrin: when start and stop touch its proxy, and what they print.
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

const std::string kActive = "/etc/tessel/httpd_tessel_proxy.conf";
const std::string kInactive = kActive + ".inactive";
const std::string kRelay = "Configured Orrin to relay WebDAV traffic to Tessel.\n";
const std::string kStopRelay = "Configured Orrin to stop relaying WebDAV traffic to Tessel.\n";
const std::string kReload = "harlowctl [reload]\n";

// A host with Orrin on the default ports and a proxy configuration to install.
class Orrin : public testing::Test {
 protected:
  Orrin() {
    host.setEnvironment("<key>-D ORRIN_HAS_DEFAULT_PORTS</key><string/>");
    host.write(kInactive, "relay");
  }

  // Runs a word and compares what it printed and whether the proxy was reloaded.
  void expectRun(const char* word, const std::string& output, bool reloaded) {
    const Outcome outcome = host.tesselctl({word});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, output);
    EXPECT_EQ(outcome.errors, "");
    const std::string calls = host.calls();
    EXPECT_EQ(calls.ends_with(kReload), reloaded) << calls;
  }

  Sandbox host;
};

TEST_F(Orrin, IsReloadedOnlyWhenTheLinkIsMadeOrRemoved) {
  expectRun("start", kRelay, true);
  EXPECT_EQ(host.linkTarget(kActive), kInactive);
  EXPECT_EQ(host.environmentValue("-D ORRIN_HAS_DEFAULT_PORTS"), "");
  expectRun("start", "", false);
  expectRun("stop", kStopRelay, true);
  EXPECT_FALSE(host.exists(kActive));
  EXPECT_EQ(host.read(kInactive), "relay");
  expectRun("stop", "Already disabled; no further action taken\n", false);
}

TEST_F(Orrin, IsLeftAloneWhenAbsent) {
  host.remove(kInactive);
  expectRun("start", "", false);  // present, but with nothing to install
  EXPECT_FALSE(host.exists(kActive));
  host.write(kInactive, "relay");
  host.setEnvironment("<key>ORRIN_HAS_DEFAULT_PORTS</key><string/>");
  expectRun("start", "", false);
  EXPECT_FALSE(host.exists(kActive));
  host.makeLink(kActive, kInactive);
  expectRun("stop", "", false);
  EXPECT_TRUE(host.exists(kActive));
}

TEST_F(Orrin, TakesAPlainFileForAnActiveConfiguration) {
  host.write(kActive, "by hand");
  expectRun("start", "", false);
  EXPECT_EQ(host.read(kActive), "by hand");
  expectRun("stop", kStopRelay, true);
  EXPECT_FALSE(host.exists(kActive));
}

TEST_F(Orrin, NeedsNoWorkingProxyTool) {
  const std::string tool = "/Applications/Orrin.app/Contents/ServerRoot/usr/sbin/harlowctl";
  host.write(tool, "#!/bin/sh\necho noise; echo noise >&2; exit 9\n", 0755);
  expectRun("start", kRelay, false);
  host.remove(tool);
  expectRun("stop", kStopRelay, false);
}

}  // namespace
