#include "tests/faults/scenario.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

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

// What a script may call: put the state before back, keep the present one in a folder.
const std::string kFunctions = R"(
F='/etc/tessel /etc/apache2 /Library /run /var/lib/directory'
K=/Library/Keychains/System.keychain
restore() { rm -rf $F; cp -a /before/. /; }
keep() {
  rm -rf $1; mkdir -p $1; cp -a --parents $F $1
  {
    [ ! -e /var/lib/directory/local/sharepoints ] || tesselctl shares
    [ ! -e $K ] || { tessel-keychain list; HOME=/ sqlite3 $K 'PRAGMA integrity_check'; }
  } 2>&1 | sed -E '/^$|^No Share|^Conf|^SHARE|^ID |is empty|^ok$/d; s/^[0-9]+ +//; s/  +/ /g' \
    > $1.shown
}
)";

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

FaultHost::FaultHost(const Scenario& tried) : scenario(tried) {
  environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");  // it cannot be traced as well
  const Outcome made = shell("umask 022\n" + scenario.prepare);
  if (made.status != 0) throw std::runtime_error(made.errors);
  write("/functions", kFunctions);
  shell(". /functions; keep /before");
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
  std::istringstream printed(shell(". /functions; restore; umask " + mask + "; " + prefix + " " +
                                   scenario.command + " > /tmp/out 2> /tmp/err; echo $?; " + script)
                                 .output);
  std::vector<int> statuses;
  for (int status = 0; printed >> status;) statuses.push_back(status);
  if (statuses.empty()) throw std::runtime_error("the script failed");
  return statuses;
}

FaultHost::State FaultHost::state(const std::string& folder) const {
  const auto known = [](std::string text) {
    for (const auto& [random, name] : {std::pair("\\d{4}-\\d\\d-\\d\\d", "DATE"),
                                       {"[0-9a-f]{64}|\\b[0-9a-f]{16}\\b", "DIGEST"},
                                       {"\\.tessel-\\w+", ".tessel-"}}) {
      text = std::regex_replace(text, std::regex(random), name);
    }
    return text;
  };
  State state;
  state.shown = known(read(folder + ".shown"));
  for (const auto& entry : fs::recursive_directory_iterator(outside(folder))) {
    const std::string path = entry.path().string().substr(outside(folder).size());
    std::string content = entry.is_symlink()     ? fs::read_symlink(entry.path()).string()
                          : entry.is_directory() ? "folder"
                                                 : read(folder + path);
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

void FaultHost::expectEither(const State& found, const State& one, const State& other,
                             const std::string& any) const {
  const auto isIn = [](const State& state, const std::string& path) {
    const auto item = state.items.lower_bound(path + " ");
    return item != state.items.end() && item->starts_with(path + " ");
  };
  for (const std::string& item : found.items) {
    EXPECT_TRUE(one.items.contains(item) || other.items.contains(item) || matches(item, any))
        << "strange: " << item;
  }
  for (const std::string& item : one.items) {
    const std::string path = item.substr(0, item.find(' '));
    EXPECT_TRUE(!isIn(other, path) || isIn(found, path) || matches(item, any)) << "lost: " << item;
  }
  EXPECT_TRUE(found.shown == one.shown || found.shown == other.shown ||
              matches(found.shown, scenario.between))
      << found.shown;
}

bool matches(const std::string& text, const std::string& expression) {
  return std::regex_match(text, std::regex(expression));
}
