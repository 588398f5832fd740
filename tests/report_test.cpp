// The report, as one reads it.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/sandbox.h"

namespace {

namespace fs = std::filesystem;

const std::string kJobs = "/Library/LaunchAgents/org.apache.httpd.tessel";
const std::string kEmptyBody = "Content-Length: 0\r\n\r\n";
// A Debian ps refuses these columns.
constexpr const char* kProcesses = R"(#!/bin/sh
echo "ps $*" >> /var/log/calls
echo '  COMMAND RUSER PPID PID STARTED  '
echo 'systemd root 0 1 09:00:00'
echo 'httpd root 1 77 09:00:01'
echo ' httpd root 1 78 09:00:01'
echo 'apache2 root 1 80 09:00:01'
echo 'httpd-wrapper root 1 81 09:00:01'
)";

class Report : public testing::Test {
 protected:
  void SetUp() override {
    host.write("/etc/nsswitch.conf", "hosts: files\n");
    host.write("/etc/hosts", "127.0.0.1 localhost web.example (null)\n");
    host.setEnvironment("");
  }

  // A configuration of strings.
  void configure(const std::map<std::string, std::string>& entries) const {
    std::string list;
    for (const auto& [key, value] : entries) {
      list.append("<key>").append(key).append("</key><string>").append(value).append("</string>");
    }
    host.configure(list);
  }

  // A report, both streams in one, while a server answers on a port.
  std::string reportServing(const std::string& port, const std::string& answer) const {
    const std::string report = "/usr/sbin/tesselctl diagnose 2>&1";
    return host.run({"/bin/tiny_server", port, answer, "--", "/bin/sh", "-c", report}).output;
  }

  Sandbox host;
};

// A script that serves the identity that has been exported for as long as the script runs, with the
// server's own page or with another answer.
std::string serveTLS(const std::string& port, const std::string& answer = "") {
  const std::string server =
      "openssl s_server -accept " + port + " -cert /etc/tessel/*.cert.pem" +
      " -key /etc/tessel/*.key.pem -pass pass:$(/etc/tessel/getSSLPassPhrase.sh)";
  const std::string log = "/tmp/" + port + ".log";
  return "rm -f " + log + ";" +
         (answer.empty() ? server + " -www"
                         : "{ printf '" + answer + "'; sleep 60; } | " + server) +
         " > " + log + " 2>&1 & until grep -qs ACCEPT " + log + "; do sleep 0.02; done;";
}

void expectParts(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) EXPECT_PRED2(contains, text, part);
}

// Compares a report with one that is kept in a file, where what differs from host to host is taken
// out: times, sizes and owners of files, digests of keys, IPv6 and the client library's reasons.
void expectReport(std::string report) {
  for (const auto& [pattern, replacement] : std::vector<std::pair<const char*, const char*>>{
           {"\n([-d][-rwx]{9})[^\n]* ([^ \n]+)(?=\n)", "\n$1 $2"},
           {"\ntotal [0-9]+\n", "\ntotal SIZE\n"},
           {"[0-9a-f]{64}", "DIGEST"},
           {",\n    ::1\n", "\n"},
           {"\nError: [^\n]+\n", "\nError: REASON\n"}}) {
    report = std::regex_replace(report, std::regex(pattern), replacement);
  }
  std::ostringstream expected;
  expected << std::ifstream(TESSEL_EXPECTED).rdbuf();
  EXPECT_EQ(report, expected.str());
}

TEST_F(Report, IsCompleteAndInOrder) {
  REQUIRE_NAMESPACES();
  host.configure(
      "<key>ServerSSL</key><true/><key>ServerPort</key><integer>8443</integer>"
      "<key>ServerName</key><string>web.example</string>"
      "<key>ServerAddr</key><string>192.0.2.1</string>");
  ASSERT_EQ(host.tesselctl({"start"}).status, 0);
  host.makeFolder("/var/lib/directory/local");
  host.makeFolder("/srv/docs");
  ASSERT_EQ(host.tesselctl({"share", "/srv/docs"}).status, 0);
  host.write(kJobs + ".alice-1.8001.plist", "");
  host.write("/Library/LaunchAgents/org.apache.httpd.plist", "");
  host.write("/usr/libexec/tessel/host/bin/ps", kProcesses, 0755);
  host.write("/usr/sbin/httpd-wrapper", "#!/bin/sh\necho \"$*:\"\necho ' Syntax OK' >&2\n", 0755);
  host.calls();
  // Of the answers on the configured port, only 200 counts.
  const Outcome outcome =
      host.shell("exec 2>&1;" + serveTLS("443") +
                 serveTLS("8443", R"(HTTP/1.1 401 No\r\nContent-Length: 0\r\n\r\n)") +
                 "exec tiny_server 80 'HTTP/1.1 204 OK\r\n\r\n' -- /usr/sbin/tesselctl diagnose");
  expectReport(outcome.output);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(host.calls(),
            "launchctl [list] [org.apache.httpd]\nps -A -c -o comm,ruser,ppid,pid,start\n");
}

TEST_F(Report, SaysWhatIsMissing) {
  for (const char* path : {"/bin/ps", "/bin/ls", "/bin/launchctl", "/Library"}) host.remove(path);
  expectParts(host.merged("diagnose"),
              {"\nNo Share Points are configured\n\nTessel is not enabled.\n" +
                   red("SecKeychainOpen error: the folder /Library/Keychains is missing") + "\n",
               "\nContents of /etc/tessel/:\ncannot run /bin/ls: No such file or directory\n\n",
               "\tConfig syntax check:cannot run /usr/sbin/httpd-wrapper: No such file or "
               "directory\n\tLaunch job is not loaded.\n",
               "httpd processes:\ncannot run /bin/ps: No such file or directory\n"});

  configure({{"ServerName", "localhost"}, {"ServerAddr", "*"}});
  host.remove("/etc/apache2/env.plist");
  host.makeFolder("/Library/Keychains");
  host.write("/bin/ps", "#!/bin/sh\necho HEADER\n", 0755);
  const Outcome outcome = host.tesselctl({"diagnose"});
  EXPECT_EQ(outcome.errors, "");
  EXPECT_TRUE(outcome.output.ends_with(
      "\nNo file found at /etc/apache2/env.plist; Tessel was probably never started.\n"
      "\nConfig is valid\n\nAll httpd processes:\nHEADER\n"));
}

TEST_F(Report, TheConfiguredPortIsAskedOverTLS) {
  REQUIRE_NAMESPACES();
  host.configure("<key>ServerSSL</key><true/><key>ServerName</key><string>web.example</string>");
  ASSERT_EQ(host.tesselctl({"start"}).status, 0);
  // A name in another case has no identity, but every certificate will do for it all the same.
  configure({{"ServerName", "Web.EXAMPLE"}, {"ServerPort", "8443"}});
  expectParts(host.shell(serveTLS("8443") + "tesselctl diagnose").output,
              {"Could not find CERT_ID", "TCP port 8443 which is responding.\n"});
  configure({{"ServerName", "web.example"}, {"ServerPort", "443"}});
  expectParts(host.shell(serveTLS("443") + "tesselctl diagnose").output,
              {"\tReturns 200 port 443.\nChecking"});
  configure({{"ServerName", "web.example"}, {"ServerPort", "80"}});
  expectParts(
      reportServing("80", "HTTP/1.1 200 OK\r\n" + kEmptyBody),
      {"\tReturns 200 on port 80.\n",
       "\nURL=https://web.example:80\n\tConfig file specifies non-standard TCP port 80 which "
       "is not responding.\n"});
  configure({{"ServerName", "web.example"}});
  expectParts(host.tesselctl({"diagnose"}).output,
              {"\nURL=https://web.example:(null)\n\tConfig file specifies non-standard TCP port 0 "
               "which is not responding.\n"});
}

TEST_F(Report, BehindOrrinOnlyItsPortAndAddressAreLookedAt) {
  REQUIRE_NAMESPACES();
  host.setEnvironment("<key>-D ORRIN_HAS_DEFAULT_PORTS</key><string></string>");
  const std::string correct =
      " port 443.\n\tConfig file specifies 127.0.0.1:81, non-SSL, which is correct "
      "behind-the-Orrin-proxy configuration, ";
  const std::string answer = "HTTP/1.1 403 No\r\n" + kEmptyBody;
  configure({{"ServerAddr", "127.0.0.1"}, {"ServerPort", "81"}});
  expectParts(
      reportServing("81", answer),
      {"}\nOrrin is present and Calder is enabled. The Apache httpd instance for Tessel "
       "should be configured to run behind Orrin's proxy.\nNo Share Points are configured\n",
       correct + "and is responding.\nChecking"});
  expectParts(
      std::regex_replace(host.tesselctl({"diagnose"}).output, std::regex("Error: [^\n]+"), "E"),
      {correct + "E\nURL=http://127.0.0.1:81\nand is not responding.\n"});
  configure({{"ServerAddr", "127.0.0.1"}, {"ServerPort", "82"}});
  EXPECT_FALSE(contains(reportServing("82", answer), "Config file specifies"));
  configure({{"ServerAddr", "*"}, {"ServerPort", "81"}});
  EXPECT_FALSE(contains(reportServing("81", answer), "Config file specifies"));
}

TEST_F(Report, OddJobNamesLeaveColumnsEmpty) {
  const std::map<std::string, std::string> jobs{
      {".alice-1.8001.plist", "alice           8001     No            1          Yes       "},
      {".carol-x7.80.plist", "carol           80       No            x7         Yes       "},
      {".e-f-1.80.plist", "e               80       No            f          Yes       "},
      {".-1-.80.plist", "                80       No            1          Yes       "},
      {".a..many letters in a name- 4000000 x.8 0.plist",
       "many letters in a name 8 0      No             4000000 x No        "},
      {"", "apache          httpd    No                       Yes       "},
      {".", "httpd           tessel   No                       Yes       "},
      {".g-1.@localhost:80.plist",
       "g               @localhost:80 No            1          Yes       "},
      {".\xC3\xBC-1.\xFF.plist",
       "\xC3\xBC              \xFF        No            1          Yes       "},
  };
  for (const auto& [name, row] : jobs) host.write(kJobs + name, "");
  const std::string report = host.tesselctl({"diagnose"}).output;
  expectParts(report, {".\n9 Active Users:\n\nUSER            PORT     RESPONDING?   "
                       "MAPPER-PID PID-ALIVE?\nError: "});
  for (const auto& [name, row] : jobs) expectParts(report, {"\n" + row + "\n"});
}

TEST_F(Report, AProcessThatMayNotBeSignalledIsNotAlive) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a process of another user";
  REQUIRE_NAMESPACES();
  const Outcome outcome = host.shell(
      "setpriv --reuid 1000 --clear-groups sleep 60 & p=$!;"
      "until [ $(stat -c %u /proc/$p) = 1000 ]; do sleep 0.02; done;"
      "echo > /Library/LaunchAgents/org.apache.httpd.tessel.u-$p.1.plist;"
      "tesselctl diagnose;"
      "setpriv --bounding-set -kill --inh-caps -kill tesselctl diagnose");
  const std::regex rows("\nu +1 +No +[0-9]+ +Yes +\n[^]*\nu +1 +No +[0-9]+ +No +\n");
  EXPECT_TRUE(std::regex_search(outcome.output, rows)) << outcome.output << outcome.errors;
}

TEST_F(Report, WritesNothingButTheExportOfTheIdentity) {
  host.configure("<key>ServerSSL</key><true/><key>ServerName</key><string>web.example</string>");
  ASSERT_EQ(host.tesselctl({"start"}).status, 0);
  host.write(kJobs + ".alice-1.8001.plist", "");
  host.write("/bin/launchctl", "#!/bin/sh\n", 0755);  // one that records nothing
  // Path and time of each file.
  const auto files = [&] {
    std::map<std::string, fs::file_time_type> found;
    for (const auto& item : fs::recursive_directory_iterator(host.outside("/"))) {
      if (item.is_regular_file()) found[item.path()] = item.last_write_time();
    }
    return found;
  };
  auto before = files();
  ASSERT_EQ(host.tesselctl({"diagnose"}).status, 1);
  std::string changed;
  for (const auto& [path, time] : files()) {
    if (before[path] != time) changed += fs::path(path).extension();
  }
  EXPECT_EQ(changed, ".sh.pem.pem");
}

}  // namespace
