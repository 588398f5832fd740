// The check of the configuration against the machine, as a report shows it.
#include <algorithm>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/sandbox.h"

namespace {

// A host whose names all come from one file.
class Validation : public testing::Test {
 protected:
  void SetUp() override {
    host.write("/etc/nsswitch.conf", "hosts: files\n");
    host.write("/etc/hosts", "127.0.0.1 localhost loop.example 7\n192.0.2.5 canonical.example " +
                                 Sandbox::hostName() + " an-alias.example localhost\n2001:db8::5 " +
                                 Sandbox::hostName() + " six.example\n192.0.2.6 other.example\n" +
                                 "127.0.0.1 second.example # no.example\n::1 first-six.example\n" +
                                 "::1 second-six.example\n127.0.1.1 debian.example\nx y\n");
  }

  // What a report says from the check of the configuration on, with "! " for the red "Error: ".
  std::string check(const std::string& entries, bool behindOrrin = false) {
    host.configure(entries);
    host.remove("/etc/apache2/env.plist");
    if (behindOrrin) host.setEnvironment("<key>-D ORRIN_HAS_DEFAULT_PORTS</key><false/>");
    const std::string report = host.merged("diagnose");
    size_t begin = 0;
    for (const std::string before : {"never started.\n", " port 443.\n", " not responding.\n"}) {
      const size_t found = report.rfind(before);
      if (found != std::string::npos) begin = std::max(begin, found + before.size());
    }
    const std::string text = report.substr(begin, report.find("\nAll httpd") - begin);
    return std::regex_replace(text, std::regex("\033\\[31mError: ([^\033]*)\033\\[0m"), "! $1");
  }

  Sandbox host;
};

const std::string kName = "<key>ServerName</key><string>localhost</string>";
const std::string kLocal = "<key>ServerAddr</key><string>127.0.0.1</string>";
const std::string kBoth = kName + kLocal;
const std::string kSSL = "<key>ServerSSL</key><true/>";
const std::string kRange = " is outside acceptable range\n";
const std::string kPrivileged =
    " is outside the privileged port range, and ServerSSL is disabled.\n";

std::string name(const std::string& text) {
  return "<key>ServerName</key><string>" + text + "</string>";
}
std::string address(const std::string& text) {
  return "<key>ServerAddr</key><string>" + text + "</string>";
}
std::string port(const std::string& number) {
  return "<key>ServerPort</key><integer>" + number + "</integer>";
}
std::string seen(const std::string& kind, const std::string& value) {
  return "Checking available server " + kind + "...\nConfigured " + value +
         " is among those available on machine.\n";
}
std::string unseen(const std::string& kind, const std::string& value) {
  return "Checking available server " + kind + "...\n! Configured " + value +
         " is not among those available on machine.\nAvailable " + kind + ": LIST\n";
}
std::string notLoopback(const std::string& value) {
  return "! Configured ServerAddr " + value + " is not 127.0.0.1 but SSL is off\n";
}
std::string behindOrrin(const std::string& what, const std::string& but) {
  return "! Orrin is present and owns " + what +
         ", so Tessel needs to be behind the service proxy, but configured " + but + "\n";
}
std::string wrongPort(const std::string& number) {
  return behindOrrin("ports 80/443", "ServerPort is " + number + ", should be 81");
}

TEST_F(Validation, FindsEveryProblemAndNothingElse) {
  const auto expectFindings = [&](const std::vector<std::pair<std::string, std::string>>& rows,
                                  bool orrin) {
    for (const auto& [entries, findings] : rows) {
      const bool valid = findings.find('!') == std::string::npos;
      EXPECT_EQ(std::regex_replace(check(entries, orrin), std::regex("\\(\n[^)]*\\)"), "LIST"),
                findings + (valid ? "\nConfig is valid\n" : "! Config is invalid\n\n"))
          << entries << (orrin ? " behind Orrin" : "");
    }
  };
  expectFindings(
      {
          {kBoth, ""},
          {kLocal + name(""), ""},
          {kLocal + name("an-alias.example"), seen("names", "ServerName an-alias.example")},
          {kLocal + name("other.example"), unseen("names", "ServerName other.example")},
          {kLocal + "<key>ServerName</key><integer>7</integer>", unseen("names", "ServerName 7")},
          {kLocal, unseen("names", "ServerName (null)")},
          {kName + address(""), ""},
          {kName + address("192.0.2.5") + kSSL, unseen("addresses", "ServerAddr 192.0.2.5")},
          {kName, unseen("addresses", "ServerAddr (null)") + notLoopback("(null)")},
          {kBoth + port("-1"), "! Configured ServerPort -1" + kRange},
          {kBoth + port("1024"), ""},
          {kBoth + port("1025"), "! Configured ServerPort 1025" + kPrivileged},
          {kBoth + port("65535") + kSSL, ""},
          {kBoth + port("65536"), "! Configured ServerPort 65536" + kRange +
                                      "! Configured ServerPort 65536" + kPrivileged},
      },
      false);
  expectFindings(
      {
          {kBoth + "<key>ServerPort</key><string> 81abc</string>", ""},
          {kName + address("*") + port("81"), ""},
          {kBoth, wrongPort("0")},
          {kBoth + port("82"), wrongPort("82")},
      },
      true);
  if (host.shell("cat /proc/net/if_inet6").output.empty()) return;
  const std::string six = seen("addresses", "ServerAddr ::1");
  expectFindings(
      {{kName + address("::1") + kSSL, six}, {kName + address("::1"), six + notLoopback("::1")}},
      false);
  expectFindings(
      {{name("x") + address("::1"),
        unseen("names", "ServerName x") + six + notLoopback("::1") +
            behindOrrin("external addresses", "ServerAddr ::1 is not 127.0.0.1") + wrongPort("0")}},
      true);
}

TEST_F(Validation, ListsEveryNameAndAddressOnce) {
  REQUIRE_NAMESPACES();
  const std::string report = check(name("x") + address("y"));
  EXPECT_PRED2(contains, report,
               "Available names: (\n    sandbox.example.net,\n    canonical.example,\n"
               "    \"an-alias.example\",\n    localhost,\n    six.example,\n    loop.example,\n"
               "    7,\n    \"first-six.example\",\n    second.example,\n"
               "    \"second-six.example\",\n    debian.example\n)\n");
  EXPECT_PRED2(contains, report, "Available addresses: (\n    127.0.0.1");

  // An entry that is larger than any sensible buffer, and none at all.
  std::string line = "127.0.0.1";
  for (int i = 0; i < 2000; ++i) line += " alias" + std::to_string(i) + ".example";
  host.write("/etc/hosts", "127.0.0.1 localhost\n" + line + "\n");
  EXPECT_PRED2(contains, check(name("alias1999.example")), "1999.example is among");
  host.remove("/etc/hosts");
  EXPECT_PRED2(contains, check(name("x")), "names: (\n    sandbox.example.net\n)");
}

}  // namespace
