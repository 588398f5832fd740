// Each file operation of each command fails once, in every way that makes sense for it. What may
// come of that is a matter of which file it is.
#include <algorithm>
#include <iostream>
#include <map>
#include <regex>

#include "tests/faults/scenario.h"

namespace {

// The first rule that fits a failure says what must come of it.
struct Rule {
  std::string what;  // "SCENARIO CALL FILE", as regular expressions all; see numbered()
  int status;
  std::string errors;  // standard error, with "!" for each red beginning
  std::string old;     // the items that stay as they were; all others are as after the command
  std::string any = "none";  // the items that may be anything
};

const std::string kAll = ".*";
const std::string kEnvironment = "/etc/apache2/env\\.plist";
const std::string kReading = "(read|openat(\\+read)?) ";
const std::string kActive = "/etc/apache2/other/httpd_tessel\\.conf";
const std::string kProxy = "/etc/tessel/httpd_tessel_proxy\\.conf";
const std::string kRecord = "/var/lib/directory/local/\\.?sharepoints";
const std::string kKeychain = "/Library/Keychains.*";
const std::string kReason =
    ": (No space left on device|Read-only file system|Permission denied|Input/output error)\n";
const std::string kExported =
    "/etc/tessel/.*(\\.key\\.pem 600 (PEM)?|\\.cert\\.pem 666 PEM|\\.sh 700 (script)?)";

const std::vector<Rule> kRules{
    // Its advice is worth less than what it does, and not looked at.
    {"Import.* " + kReading + "(/etc|/usr/lib)/.*", 0, "", "none"},
    {".* " + kReading + "/etc/tessel/tessel\\.plist", 2,
     "!Tessel config file /etc/tessel/tessel.plist is malformed.\n\n!Cannot proceed.\n", kAll},
    // One that cannot be read counts as empty. Start and stop read it again when it is their turn,
    // so the first time does not matter.
    {"St.* " + kReading + kEnvironment + "#0", 0, "", "none"},
    {"St.* " + kReading + kEnvironment + "#1", 0, "", kProxy + " .*", kEnvironment + " .*"},
    {".* " + kReading + kEnvironment + ".*", 0, "", "none"},
    {"St.* (openat\\+)?flock /(var/lib/tessel|Library/Keychains)", 0, "", "none"},
    {"Start.* (openat\\+write|write|f.*|rename) " + kEnvironment + "(#.*)?", 0, "",
     kEnvironment + " .*"},
    {"Start.* " + kActive, 1, "!cannot (make a link at|move) .*" + kReason, kAll},
    {"Stop.* " + kActive + "\\.inactive", 1, "!cannot move .*" + kReason, kAll,
     "/Library/LaunchAgents/.*"},
    {".* (openat\\+)?f(data)?sync "
     "/.*/(tessel|apache2|other|LaunchAgents|Keychains|local|sharepoints)",
     0, "", "none"},
    {"St.* .*/\\.tesselStartedApache", 0, "", ".*/\\.tesselStartedApache .*"},
    {"Stop.* (openat(\\+getdents.*)?|getdents.*|unlink) /Library/LaunchAgents.*", 0, "",
     "/Library/LaunchAgents/.*"},
    {"St.* (symlink|unlink) " + kProxy, 0, "!cannot (make a link at|remove) " + kProxy + kReason,
     kProxy + " .*"},
    {"Start.* .*\\.key\\.pem", 0,
     "(!Failed to (create exported key file at|write exported key to) .*\\.key\\.pem\n)+", "none",
     kExported},
    {"Start.* .*\\.cert\\.pem", 0, "!Failed to write exported cert to .*\\.cert\\.pem\n", "none",
     kExported},
    {"Start.* .*/getSSLPassPhrase\\.sh", 0,
     "!Failed to (create pass phrase tool file at|write pass phrase tool to) .*\\.sh\n", "none",
     kExported},
    // One that cannot be read holds nothing that could be exported, so an identity is made. Its
    // making is three changes: the key pair, the certificate, and the public key's removal, which
    // nobody misses when it fails.
    {"StartExports .* " + kKeychain, 0, "(!SecKeychainOpen error: .*\n)?", "none"},
    {"StartMakesIdentity (fchown .*|.* " + kKeychain + "#2)", 0, "", "none"},
    {"StartMakesIdentity .* " + kKeychain, 1,
     "!(_createUserKeyPair|createSelfSignedCertificateWithPublicKey"
     "|SecIdentityCreateWithCertificate) error: .*\n!Failed to create identity for .*\n"
     "!Cannot start in SSL mode due to certificate problem\n",
     "(?!" + kActive + ").*", kKeychain},
    {"ShareNew .* /var/lib/directory.*", 1,
     "!Cannot create new record\n!cannot (make the folder|lock|write) " + kRecord + ".*" + kReason,
     kAll, kRecord + " 755 folder"},
    {"ShareExisting .* " + kRecord + ".*", 1,
     "!Cannot set attribute value:cannot (lock|read|write) " + kRecord + ".*" + kReason +
         "|!Cannot create new record\n!nothing is overwritten at .*\n",
     kAll, kRecord + "/Projects\\.plist .*"},
    {"Unshare.* " + kRecord + ".*", 1,
     "!(No share point named 'Projects'\n|Cannot (get attributes|set attributes|delete record): "
     "cannot (lock|read|write|remove) " +
         kRecord + ".*" + kReason + ")",
     kAll},
    {"Share.* (openat.*|getdents.*) /srv/Projects", 0, "", "none"},
    {"Import.* " + kReading + "/pki/.*", 1, "tessel-keychain: cannot read /pki/.*" + kReason, kAll},
    {"(Import|Delete).* fchown " + kKeychain, 0, "", "none"},
    {"(Import|Delete).* " + kKeychain, 1, "tessel-keychain: .*\n", kAll, kKeychain},
};

// Judges what the host's command left in /failed after a call, "CALL FILE", had failed.
void expectFailure(const FaultHost& host, const std::string& call, int status) {
  const std::string what = std::string(host.scenario.name) + " " + call;
  const std::string all =
      std::regex_replace(host.read("/tmp/err"), std::regex("tessel-keychain: warning: .*\n"), "");
  const std::string errors =
      std::regex_replace(all, std::regex("\033\\[31mError: ([^\033]*)\033\\[0m"), "!$1");
  const auto rule = std::find_if(kRules.begin(), kRules.end(),
                                 [&](const Rule& one) { return matches(what, one.what); });
  ASSERT_NE(rule, kRules.end()) << what << "\n" << status << " " << errors;
  EXPECT_EQ(status, rule->status) << what;
  EXPECT_PRED2(matches, errors, rule->errors) << what;
  EXPECT_TRUE(status == 0 || !std::regex_search(host.read("/tmp/out"),
                                                std::regex("Imported|Created sh|Updated|Deleted")));
  const FaultHost::State left = host.state("/failed");
  // A journal that could not be removed undoes its changes when the keychain is used next.
  const std::string debris =
      call.starts_with("unlink") ? ".*/\\.tessel- .*" : ".*/(\\.tessel-|.*-journal) .*";
  for (const std::string& item : left.items) EXPECT_FALSE(matches(item, debris)) << item;
  FaultHost::State expected;
  for (const std::string& item : host.before.items) {
    if (matches(item, rule->old)) expected.items.insert(item);
  }
  for (const std::string& item : host.after.items) {
    if (!matches(item, rule->old)) expected.items.insert(item);
  }
  expected.shown = (status == 0 ? host.after : host.before).shown;
  host.expectEither(left, expected, expected, rule->any);
}

std::vector<const char*> errorsOf(const Call& call) {
  if (matches(call.name, "p?read.*|getdents.*|flock")) return {"EIO"};
  if (matches(call.name, "p?write.*|f(data)?sync|ftruncate")) return {"ENOSPC", "EIO"};
  if (call.name.starts_with("open") && !call.changes()) return {"EACCES", "EIO"};
  return {"ENOSPC", "EROFS", "EACCES"};
}

// "CALL FILE", and for what is read or changed more than once, "#" and how often that has been done
// before: Apache's environment when it is closed, the keychain when its journal is removed.
std::string numbered(const Call& call, std::map<std::string, int>& done) {
  std::string what = call.name + (call.use.empty() ? "" : "+" + call.use) + " " + call.target;
  const bool isKeychain = call.path.starts_with("/Library/Keychains/");
  if (!isKeychain && call.path != "/etc/apache2/env.plist") return what;
  int& times = done[isKeychain ? "/Library/Keychains" : call.path];
  const bool isDone = call.name == (isKeychain ? "unlink" : "close");
  return what + "#" + std::to_string(isDone ? times++ : times);
}

// Where runs take long, each operation fails in one way only, in turn.
bool takesLong([[maybe_unused]] const Scenario& scenario) {
#ifdef __SANITIZE_ADDRESS__
  return true;
#else
  const std::string name = scenario.name;
  return name == "StartMakesIdentity" || name == "StartExports";
#endif
}

class Failure : public testing::TestWithParam<Scenario> {};

TEST_P(Failure, IsReportedAndLosesNothing) {
  static const std::string kFiles =
      "/(etc/tessel|etc/apache2|Library|var/lib/directory|var/lib/tessel|pki|srv)/.*";
  const FaultHost host(GetParam());
  size_t points = 0;
  size_t runs = 0;
  std::map<std::string, int> done;
  for (const Call& call : host.calls) {
    const std::string what = numbered(call, done);
    if (!matches(call.path + "/", kFiles) || matches(call.name, "close|readlink")) continue;
    if (isBetweenLikes(host.calls, call)) continue;
    std::vector<const char*> errors = errorsOf(call);
    if (takesLong(host.scenario)) errors = {errors[points % errors.size()]};
    ++points;
    for (const char* error : errors) {
      SCOPED_TRACE(call.line + ": " + error);
      ++runs;
      const std::vector<int> statuses = host.runWith(
          "strace -qq -o /tmp/trace -e trace=" + call.name + " -e inject=" + call.name +
              ":error=" + error + ":when=" + std::to_string(call.time),
          "grep -c INJECTED /tmp/trace; keep /failed");
      ASSERT_EQ(statuses.size(), 2U);
      EXPECT_EQ(statuses[1], 1);
      expectFailure(host, what, statuses[0]);
    }
  }
  std::cout << GetParam() << ": " << points << " operations failed, in " << runs << " runs\n";
}

INSTANTIATE_TEST_SUITE_P(Fault, Failure, testing::ValuesIn(scenarios()),
                         [](const auto& one) { return std::string(one.param.name); });

struct Disk {
  std::string scenario;
  std::string folder;  // where it is mounted
  bool full;           // read-only otherwise
  std::string call;    // the first one that fails, "CALL FILE" in the folder
};

TEST(FailingDisk, IsReportedAndLosesNothing) {
  REQUIRE_NAMESPACES();
  const std::vector<Disk> disks{
      {"StartMakesIdentity", "/etc/tessel", true, "write /x.key.pem"},
      {"StartExports", "/etc/tessel", true, "write /x.key.pem"},
      {"StartFirst", "/etc/apache2", true, "write /env.plist"},
      {"StopStarted", "/etc/apache2", false, "renameat2 /other/httpd_tessel.conf.inactive"},
      {"StartMakesIdentity", "/Library/Keychains", true, "pwrite64 /System.keychain"},
      {"ImportMore", "/Library/Keychains", true, "pwrite64 /System.keychain"},
      {"ImportMore", "/Library/Keychains", false, "openat /System.keychain"},
      {"ShareNew", "/var/lib/directory/local", true, "write /sharepoints"},
      {"ShareExisting", "/var/lib/directory/local", false, "openat /sharepoints"},
      {"UnshareDeletes", "/var/lib/directory/local", false, "unlink /sharepoints"},
  };
  for (const Disk& disk : disks) {
    SCOPED_TRACE(disk.scenario + " " + disk.folder);
    const auto scenario =
        std::find_if(scenarios().begin(), scenarios().end(),
                     [&](const Scenario& one) { return one.name == disk.scenario; });
    FaultHost host(*scenario);
    const std::string fill = disk.folder + "/fill";
    host.shell(". /functions; restore");
    if (disk.full) {
      host.mounts = {"--size", "65536", "--tmpfs", disk.folder};
    } else {
      host.mounts = {"--ro-bind", host.outside(disk.folder), disk.folder};
    }
    const std::vector<int> statuses = host.runWith(
        "dd if=/dev/zero of=" + fill + " bs=4k 2>/dev/null;", "rm -f " + fill + "; keep /failed");
    expectFailure(host, std::string(disk.call).insert(disk.call.find('/'), disk.folder),
                  statuses.front());
  }
}

}  // namespace
