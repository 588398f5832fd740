#include "tests/faults/scenario.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/authority.h"

namespace fs = std::filesystem;

namespace {

const std::string kServer = "dav.example.org";
const std::string kActive = "/etc/apache2/other/httpd_tessel.conf";
const std::string kActivate = "ln -s /etc/tessel/httpd_tessel.conf " + kActive + "\n";
const std::string kProxy = "/etc/tessel/httpd_tessel_proxy.conf";
const std::string kStop = "tesselctl stop && tesselctl status | grep -q disabled";
const std::string kStart = "tesselctl start && tesselctl status | grep -q enabled";
const std::string kShare = "tesselctl share /srv/Projects";
const std::string kUnshare = "tesselctl unshare Projects";
const std::string kShared = "tesselctl shares | grep -q '/srv/Projects .*Yes'";
const std::string kImport = "tessel-keychain import /pki/chain.pem /pki/b.key";

// A script that writes a property list.
std::string list(const std::string& path, const std::string& entries) {
  return "cat > " + path + " <<'.'\n" + dictionary(entries) + ".\n";
}

std::string record(const std::string& entries) {
  return "mkdir -m 755 " + kRecordFolder + "\n" +
         list(kRecordFolder + "/Projects.plist", nameAndPath("Projects", "/old") + entries);
}

const std::string kTLS = list("/etc/tessel/tessel.plist",
                              "<key>ServerSSL</key><true/><key>ServerPort</key>"
                              "<integer>8443</integer><key>ServerName</key><string>" +
                                  kServer + "</string>");
const std::string kOrrin = list("/etc/apache2/env.plist",
                                "<key>-D ORRIN_HAS_DEFAULT_PORTS</key><string/>"
                                "<key>Others</key><string>kept</string>") +
                           "touch " + kProxy + ".inactive\n";
// The files that Apache's environment names belong together.
const std::string kFits = R"-(
  id=/etc/tessel/$(sed -n '/CERT_ID/{n;s/.*<string>//;s/<.*//p}' /etc/apache2/env.plist)
  key=$(openssl pkey -in $id.key.pem -passin pass:$(/etc/tessel/getSSLPassPhrase.sh) -pubout)
  [ -n "$key" ] && [ "$key" = "$(openssl x509 -in $id.cert.pem -noout -pubkey)" ] &&
)-";
// What the keychain holds while an identity is being made.
const std::string kMade = "private key - - " + kServer + "\npublic key - - " + kServer +
                          "\n|(public key - - .*\n)?identity DATE DIGEST " + kServer + "\n";
const std::string kChain =
    issue("b", "b.example", "middle", "DNS:b.example") + "cat b.pem middle.pem > chain.pem\n";

}  // namespace

std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
  return out << scenario.name;
}

const std::vector<Scenario>& scenarios() {
  static const std::string kAuthority = authorityScript();
  static const std::vector<Scenario> all{
      {"StartFirst", "", "tesselctl start", kStop},
      {"StartAgain",
       kOrrin + kActivate + "mv " + kActive + " " + kActive +
           ".inactive; touch /run/apache.loaded /etc/tessel/.tesselStartedApache",
       "tesselctl start", kStop, "none", "/run/apache.loaded|.*/.tesselStartedApache"},
      {"StartMakesIdentity", kTLS, "tesselctl start", kFits + kStop, kMade},
      {"StartExports",
       kTLS + kAuthority + issue("ca", kServer, "root", "DNS:" + kServer) +
           "tessel-keychain import ca.pem ca.key",
       "tesselctl start", kFits + kStop, "identity DATE DIGEST " + kServer + "\n(" + kMade + ")"},
      {"StopStarted",
       kOrrin + kActivate + "ln -s " + kProxy + ".inactive " + kProxy +
           "\ntouch /run/apache.loaded /etc/tessel/.tesselStartedApache"
           " /Library/LaunchAgents/org.apache.httpd.tessel.x.plist",
       "tesselctl stop", kStart, "none", "/run/apache.loaded|.*/.tesselStartedApache|" + kProxy},
      {"StopOfAnothersApache", kActivate + "touch /run/apache.loaded", "tesselctl stop", kStart,
       "none", "/run/apache.loaded"},
      {"ShareNew", "", kShare, kUnshare + " && ! " + kShared},
      {"ShareExisting", record(attribute(kSMBShared, {"1"})), kShare, kUnshare + " && ! " + kShared,
       "Projects /old Yes \n"},
      {"UnshareDeletes", record(""), kUnshare, kShare + " && " + kShared},
      {"UnshareWithdraws", record(attribute(kWebDAVShared, {"1"}) + attribute(kSMBShared, {"1"})),
       kUnshare, kShare + " && " + kShared},
      {"ImportFirst", kAuthority + kChain, kImport, "tessel-keychain delete 2"},
      {"ImportMore",
       kAuthority + kChain + issue("a", "a.example", "root", "DNS:a.example") +
           "tessel-keychain import a.pem a.key",
       kImport, "tessel-keychain delete 4"},
      {"Delete", kAuthority + kChain + kImport, "tessel-keychain delete 2", kImport},
  };
  return all;
}

const std::string FaultHost::prelude = R"(
F='/etc/tessel /etc/apache2 /Library /run /var/lib/directory'
K=/Library/Keychains/System.keychain
restore() { rm -rf $F; cp -a /before/. /; }
keep() {
  rm -rf $1; mkdir -p $1; cp -a --parents $F $1
  { tesselctl shares; tessel-keychain list; [ ! -e $K ] || HOME=/ sqlite3 $K 'PRAGMA integrity_check'; } \
    2>&1 | sed -E '/^$|^No Share|^Conf|^SHARE|^ID |is empty|^ok$/d; s/^[0-9]+ +//; s/  +/ /g' \
    > $1.shown
}
)";

FaultHost::FaultHost(const Scenario& scenario) : scenario(scenario) {
  environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");  // it cannot be traced as well
  const Outcome made = shell("umask 022\n" + scenario.prepare);
  if (made.status != 0) throw std::runtime_error(made.errors);
  write("/prelude", prelude);
  shell(". /prelude; keep /before");
  statusAgain = runWith("strace -qq -o /tmp/trace -e '" + std::string(kTracedCalls) + "'",
                        "keep /after; " + scenario.command + " > /tmp/out; echo $?; keep /again")
                    .back();
  calls = parseTrace(read("/tmp/trace"));
  before = state("/before");
  after = state("/after");
  again = state("/again");
}

std::vector<int> FaultHost::runWith(const std::string& prefix, const std::string& script) const {
  // Of all masks the one that would do harm: records are for everybody, and secrets for nobody.
  const std::string mask = scenario.command.find("share") != std::string::npos ? "077" : "0";
  std::istringstream printed(shell(". /prelude; restore; umask " + mask + "; " + prefix + " " +
                                   scenario.command + " > /tmp/out 2> /tmp/err; echo $?; " + script)
                                 .output);
  std::vector<int> statuses;
  for (int status = 0; printed >> status;) statuses.push_back(status);
  if (statuses.empty()) throw std::runtime_error("the script failed");
  return statuses;
}

FaultHost::State FaultHost::state(const std::string& folder) const {
  const auto known = [](const std::string& text) {
    const std::string dated = std::regex_replace(text, std::regex("\\d{4}-\\d\\d-\\d\\d"), "DATE");
    return std::regex_replace(
        std::regex_replace(dated, std::regex("[0-9a-f]{64}|\\b[0-9a-f]{16}\\b"), "DIGEST"),
        std::regex("\\.tessel-\\w+"), ".tessel-");
  };
  State state;
  state.shown = known(read(folder + ".shown"));
  for (const auto& entry : fs::recursive_directory_iterator(outside(folder))) {
    const std::string path = entry.path().string().substr(outside(folder).size());
    std::string content;
    if (entry.is_symlink()) {
      content = fs::read_symlink(entry.path()).string();
    } else if (entry.is_regular_file()) {
      content = read(folder + path);
    } else {
      content = "folder";
    }
    std::ostringstream mode;
    mode << std::oct << this->mode(folder + path);
    const bool isKey = content.find("PRIVATE KEY") != std::string::npos;
    const bool isScript = content.starts_with("#!/bin/sh\necho '");
    const bool inKeychain = path.starts_with("/Library/Keychains/");
    if (isKey || isScript || inKeychain) {
      EXPECT_EQ(this->mode(folder + path) & 077U, 0U) << path << " is open to others";
    }
    if (content.starts_with("-----BEGIN") && content.ends_with("-----\n")) content = "PEM";
    if (isScript && content.size() == 53) content = "script";
    if (inKeychain) content = "keychain";
    std::replace(content.begin(), content.end(), '\n', ' ');
    state.items.insert(known(path + " " + mode.str() + " " + content));
  }
  return state;
}

void FaultHost::expectOldOrNew(const State& found, const std::string& also) const {
  const std::string passing =
      R"(.*/(\.tessel- |System\.keychain).*|.*\.(key\.pem|sh) 0?[67]00 |.*()" + also + ").*" +
      (scenario.between == "none" ? "" : "|" + kRecordFolder + "/Projects.plist 644 .*");
  for (const std::string& item : found.items) {
    EXPECT_TRUE(before.items.contains(item) || after.items.contains(item) || matches(item, passing))
        << item;
  }
  const auto paths = [](const std::set<std::string>& items) {
    std::set<std::string> paths;
    for (const std::string& item : items) paths.insert(item.substr(0, item.find(' ')));
    return paths;
  };
  const auto [had, has, left] =
      std::array{paths(before.items), paths(after.items), paths(found.items)};
  for (const std::string& path : had) {
    EXPECT_TRUE(!has.contains(path) || left.contains(path) || matches(path, scenario.unfinished))
        << path << " is lost";
  }
  EXPECT_TRUE(found.shown == before.shown || found.shown == after.shown ||
              matches(found.shown, scenario.between))
      << found.shown;
}

void FaultHost::expectDone(const State& found) const {
  const std::string unfinished = "(" + scenario.unfinished + ") .*";
  for (const std::string& item : found.items) {
    EXPECT_TRUE(after.items.contains(item) || again.items.contains(item) ||
                matches(item, ".*/(\\.tessel-|System.keychain-journal) .*|" + unfinished))
        << item;
  }
  for (const std::string& item : after.items) {
    EXPECT_TRUE(!again.items.contains(item) || found.items.contains(item) ||
                matches(item, unfinished))
        << item << " is missing";
  }
  // What a creation that was killed has stored is never removed.
  const std::string shown =
      std::regex_replace(found.shown, std::regex("(private|public) key - - .*\n"), "");
  EXPECT_TRUE(shown == after.shown || shown == again.shown) << found.shown;
}

bool matches(const std::string& text, const std::string& expression) {
  return std::regex_match(text, std::regex(expression));
}
