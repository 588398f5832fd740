// share and unshare: what is refused, what is printed, what the record says afterwards, and when
// Apache is restarted.
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tests/share_records.h"

namespace {

const std::string kRestart = "launchctl [kill] [USR1] [system/org.apache.httpd]\n";
const std::string kUpdated = "Updated existing share point\n";

std::string created(const std::string& name) {
  return "No existing share point named " + name + "\nCreated share point\n";
}

std::string sharedEntries(const std::string& name, const std::string& path) {
  return attribute(kName, {name}) + attribute(kPath, {path}) + attribute(kWebDAVName, {name}) +
         attribute(kWebDAVShared, {"1"});
}

void expectRun(const Sandbox& host, const std::vector<std::string>& arguments,
               const Outcome& expected, const std::string& calls) {
  const Outcome outcome = host.tesselctl(arguments);
  EXPECT_EQ(outcome.output, expected.output) << arguments.back();
  EXPECT_EQ(outcome.errors, expected.errors) << arguments.back();
  EXPECT_EQ(outcome.status, expected.status) << arguments.back();
  EXPECT_EQ(host.calls(), calls) << arguments.back();
}

void expectRefusal(const Sandbox& host, const std::string& word, const std::string& path,
                   const std::string& message) {
  expectRun(host, {word, path}, {1, "", red(message) + "\n"}, "");
}

TEST(Share, MakesARecordThenUpdatesIt) {
  ShareHost host;
  expectRun(host, {"share", "/srv/Projects/"}, {0, created("Projects"), ""}, kRestart);
  EXPECT_EQ(host.entries("Projects.plist"), sharedEntries("Projects", "/srv/Projects"));
  EXPECT_EQ(host.tesselctl({"shares"}).output,
            kListingHead + row("Projects", "/srv/Projects", "Yes"));

  expectRun(host, {"share", "/srv/Projects"}, {0, kUpdated, ""}, "");
  expectRun(host, {"share", "/srv/Other/Projects"}, {0, kUpdated, ""}, "");
  EXPECT_EQ(host.entries("Projects.plist"), sharedEntries("Projects", "/srv/Other/Projects"));
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{"Projects.plist"});

  expectRun(host, {"unshare", "/nowhere/Projects"},
            {0,
             "Share point is not SMB shared\nShare point is not AFP shared\n"
             "No other shares; deleting share point\nDeleted share point\n",
             ""},
            kRestart);
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
  expectRefusal(host, "unshare", "Projects", "No share point named 'Projects'");
  // Without a path there is nothing to do.
  expectRun(host, {"share"}, {0, "", ""}, "");
  expectRun(host, {"unshare"}, {0, "", ""}, "");
}

TEST(Share, ModesDoNotDependOnTheShell) {
  ShareHost host;
  host.write(kRecordLock, "", 0666);  // as a shell's flock makes it, which lets everybody hold it
  EXPECT_EQ(host.shell("umask 077; tesselctl share /srv/Projects").status, 0);
  EXPECT_EQ(host.mode(kRecordLock), 0600U);
  EXPECT_EQ(host.mode(kRecordFolder), 0755U);
  EXPECT_EQ(host.mode(kRecordFolder + "/Projects.plist"), 0644U);
  host.shell("chmod 600 " + kRecordFolder + "/*; tesselctl share /srv/Projects");
  EXPECT_EQ(host.mode(kRecordFolder + "/Projects.plist"), 0600U);
}

TEST(Share, TellsOfTheRestartWhenItFails) {
  ShareHost host;
  const std::string restarted = "Gracefully restarted httpd\n";
  host.write("/etc/launchctl.hook", "echo out; echo err >&2; exit 3\n");
  expectRun(host, {"share", "/srv/Projects"}, {0, created("Projects") + restarted, ""}, kRestart);
  const Outcome removed = host.tesselctl({"unshare", "Projects"});
  EXPECT_TRUE(removed.output.ends_with("Deleted share point\n" + restarted)) << removed.output;
  EXPECT_EQ(removed.status, 0);
  host.remove("/bin/launchctl");
  host.calls();
  expectRun(host, {"share", "/srv/Projects"}, {0, created("Projects") + restarted, ""}, "");
}

TEST(Share, RefusesBeforeItLooksAtTheDirectory) {
  ShareHost host;
  host.remove("/var/lib/directory");
  for (const char* folder : {"/srv/webdav/Projects", "/srv/WebDAV/Projects", "/srv/webdav2"}) {
    host.makeFolder(folder);
  }
  host.write("/srv/file", "");
  host.makeLink("/srv/dangling", "/nowhere");
  host.makeLink("/srv/link", "/srv/Projects");
  const std::string specified = "Cannot share: Specified path '";
  const std::string reserved = " contains reserved string \"webdav\" as a path component";
  for (const char* path : {"webdav", "/webdav", "/srv/webdav/Projects", "/srv/webdav/",
                           "/nowhere/webdav/..", "webdav//"}) {
    expectRefusal(host, "share", path, specified + path + "'" + reserved);
  }
  for (const char* path :
       {"", "/nowhere", "/srv/nowhere/../Projects", "~", "/srv/dangling", "/srv/file/"}) {
    expectRefusal(host, "share", path, specified + path + "' does not exist");
  }
  expectRefusal(host, "share", "/srv/file", specified + "/srv/file' is not a directory");
  for (const char* path : {"/srv/WebDAV/Projects", "/srv/webdav2", "/srv/link"}) {
    expectRefusal(host, "share", path, "Cannot create Nexa session");
  }
  expectRefusal(host, "unshare", "srv", "Cannot create Nexa session");
  host.makeFolder("/var/lib/directory");
  expectRefusal(host, "share", "/srv/Projects", "Cannot create Nexa node");
  expectRefusal(host, "unshare", "srv", "Cannot create Nexa node");
}

TEST(Share, WarnsOfAReservedNameInsideTheFolder) {
  ShareHost host;
  host.makeFolder("/srv/Projects/deeper/webdav");
  host.makeFolder("/srv/Projects/WebDAV");
  expectRun(host, {"share", "/srv/Projects"}, {0, created("Projects"), ""}, kRestart);
  host.makeLink("/srv/Projects/webdav", "/nowhere");
  expectRun(host, {"share", "/srv/Projects/"},
            {0,
             "Warning: Specified path '/srv/Projects/' contains a file or folder named with "
             "resrved string \"webdav\"\n" +
                 kUpdated,
             ""},
            "");
}

// The rules for paths have a table of their own; here are those that ask the host, and odd names.
TEST(Share, TakesTheNameAsTypedAndThePathStandardized) {
  ShareHost host;
  host.write("/etc/passwd", "root:x:0:0::/var/root:/bin/sh\nann:x:1000:1000::/Users/ann:/bin/sh\n");
  for (const char* folder : {"/srv/~/Work", "/srv/~ann/Work", "/private/only", "/private/twice",
                             "/private/private/twice", "/twice"}) {
    host.makeFolder(folder);
  }
  host.makeLink("/srv/Latest", "/srv/Projects");
  host.makeFolder("/srv/.hidden\n\r");
  host.makeFolder("/srv/caf\xC3\xA9 <&>\"'");
  host.makeFolder("/srv/" + std::string(249, 'n'));
  // As typed in /srv, and the name, file and path that come of it.
  const std::vector<std::array<std::string, 4>> cases{
      {"Projects", "Projects", "Projects", "Projects"},
      {"//srv/Latest/", "Latest", "Latest", "/srv/Latest"},
      {"/", "/", "%2F", "/"},
      {"~/Work", "Work", "Work", "/var/root/Work"},
      {"~ann/Work/", "Work", "Work", "/Users/ann/Work"},
      {"/private/only", "only", "only", "/private/only"},
      {"/private/private/twice", "twice", "twice", "/private/twice"},
      {"./.hidden\n\r", ".hidden\n\r", "%2Ehidden%0A%0D", "./.hidden\n\r"},
      {"caf\xC3\xA9 <&>\"'", "caf\xC3\xA9 <&>\"'", "caf\xC3\xA9 <&>\"'", "caf\xC3\xA9 <&>\"'"},
      {std::string(249, 'n'), std::string(249, 'n'), std::string(249, 'n'), std::string(249, 'n')},
  };
  for (const auto& [typed, name, file, path] : cases) {
    const Outcome outcome = host.run(
        {"/bin/sh", "-c", "cd /srv && HOME=/elsewhere exec tesselctl share \"$0\"", typed});
    EXPECT_EQ(outcome.output, created(name)) << typed;
    EXPECT_EQ(host.recordNames(), std::vector<std::string>{file + ".plist"}) << typed;
    EXPECT_EQ(host.tesselctl({"shares"}).output, kListingHead + row(name, path, "Yes"));
    EXPECT_EQ(host.tesselctl({"unshare", typed}).status, 0) << typed;
    EXPECT_EQ(host.recordNames(), std::vector<std::string>{}) << typed;
  }
}

TEST(Share, NamesThatNoRecordCanHave) {
  ShareHost host;
  const auto notHeld = [](const std::string& attribute) {
    return "a property list cannot hold the value of " + attribute +
           ", which is not UTF-8 or has control characters";
  };
  const std::string longName(250, 'n');
  const std::vector<std::pair<std::string, std::string>> cases{
      {longName, "cannot write " + kRecordFolder + "/" + longName + ".plist: File name too long"},
      {"caf\xE9", notHeld(kName)},
      {"\x1B[31m", notHeld(kName)},
      {"caf\xE9/inside", notHeld(kPath)},
  };
  for (const auto& [name, reason] : cases) {
    host.makeFolder("/srv/" + name);
    const std::string last = name.substr(name.rfind('/') + 1);
    expectRun(host, {"share", "/srv/" + name},
              {1, "No existing share point named " + last + "\n",
               red("Cannot create new record") + "\n" + red(reason) + "\n"},
              "");
    expectRefusal(host, "unshare", "/srv/" + name, "No share point named '" + last + "'");
  }
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
}

TEST(Share, KeepsWhatOtherProgramsWrote) {
  ShareHost host;
  // More types than these are tried with Apache's environment, which is rewritten the same way.
  const std::string others =
      "<key>Comment</key><string>kept as a string</string>"
      "<key>group</key><array><string>A &amp; B</string><string></string></array>" +
      attribute(kSMBShared, {"1"}) +
      "<key>limits</key><dict><key>n</key><integer>-7</integer></dict>";
  host.record("Projects.plist", attribute(kName, {"Projects", "alias"}) + "<key>" + kPath +
                                    "</key><string>/a string</string>" + others);
  expectRun(host, {"share", "/srv/Projects"}, {0, kUpdated, ""}, "");
  const std::string head =
      attribute(kName, {"Projects", "alias"}) + attribute(kPath, {"/srv/Projects"});
  EXPECT_EQ(host.entries("Projects.plist"),
            head + others + attribute(kWebDAVShared, {"1"}) + attribute(kWebDAVName, {"Projects"}));
  EXPECT_EQ(host.tesselctl({"unshare", "Projects"}).status, 0);
  EXPECT_EQ(host.entries("Projects.plist"),
            head + others + attribute(kWebDAVShared, {"0"}) + attribute(kWebDAVName, {"Projects"}));
  EXPECT_EQ(host.tesselctl({"shares"}).output,
            kListingHead + row("Projects", "/srv/Projects", "No"));
}

TEST(Share, GoesByTheNameThatARecordSays) {
  ShareHost host;
  host.record(".plist", nameAndPath("", "/srv"));
  expectRefusal(host, "unshare", "", "No share point named ''");

  // What is listed under a name is found under it, whatever its file is called.
  host.record("odd.plist", nameAndPath("Projects", "/old"));
  expectRun(host, {"share", "/srv/Projects"}, {0, kUpdated, ""}, "");
  EXPECT_EQ(host.tesselctl({"shares"}).output,
            kListingHead + row("Projects", "/srv/Projects", "Yes"));
  expectRefusal(host, "unshare", "odd", "No share point named 'odd'");
  EXPECT_EQ(host.tesselctl({"unshare", "Projects"}).status, 0);
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{".plist"});

  // The file that its name would have is another's.
  host.calls();
  host.record("Projects.plist", nameAndPath("Other", "/old"));
  expectRefusal(host, "unshare", "Projects", "No share point named 'Projects'");
  expectRun(host, {"share", "/srv/Projects"},
            {1, "No existing share point named Projects\n",
             red("Cannot create new record") + "\n" +
                 red("nothing is overwritten at " + kRecordFolder +
                     "/Projects.plist: a share point of another name is in its place") +
                 "\n"},
            "");
  host.record("Other.plist", attribute(kPath, {"/no name"}));
  EXPECT_EQ(host.tesselctl({"unshare", "Other"}).status, 0);
  EXPECT_EQ(host.recordNames(), (std::vector<std::string>{".plist", "Projects.plist"}));
}

TEST(Unshare, DecidesByPresenceAndSpeaksByValue) {
  const std::string notSMB = "Share point is not SMB shared\n";
  const std::string isSMB = "Share point is SMB shared\n";
  const std::string notAFP = "Share point is not AFP shared\n";
  const std::string isAFP = "Share point is AFP shared\n";
  const std::string keeps = "Has other shares; updating attributes\n";
  const std::string deletes = "No other shares; deleting share point\nDeleted share point\n";
  const std::string smb = "<key>" + kSMBShared + "</key>";
  const std::string smbOn = attribute(kSMBShared, {"1"});
  const std::string smbOff = attribute(kSMBShared, {"0"});
  const std::string afpOn = attribute(kAFPShared, {"1"});
  const std::string afpOff = attribute(kAFPShared, {"0"});
  const std::vector<std::pair<std::string, std::string>> cases{
      {"", notSMB + notAFP + deletes},
      {afpOn, notSMB + isAFP + keeps},
      {afpOff, notSMB + keeps},
      {smbOn, isSMB + notAFP + keeps},
      {smbOn + afpOn, isSMB + isAFP + keeps},
      {smbOn + afpOff, isSMB + keeps},
      {smbOff, notAFP + keeps},
      {smbOff + afpOn, isAFP + keeps},
      {smbOff + afpOff, keeps},
      {attribute(kSMBShared, {"01", "1"}), notAFP + keeps},
      {smb + "<array/>", notSMB + notAFP + deletes},
      {smb + "<integer>1</integer>", isSMB + notAFP + keeps},
  };
  ShareHost host;
  for (const auto& [flags, lines] : cases) {
    // A share that was never Tessel's is treated like any other.
    for (const std::string& own : {sharedEntries("Projects", "/srv/Projects"), std::string()}) {
      SCOPED_TRACE(own + flags);
      host.record("Projects.plist", own + flags);
      expectRun(host, {"unshare", "Projects/"}, {0, lines, ""}, kRestart);
      const bool kept = lines.ends_with(keeps);
      EXPECT_EQ(host.recordNames().size(), kept ? 1U : 0U);
      if (!kept) continue;
      const std::string left = host.entries("Projects.plist");
      EXPECT_PRED2(contains, left, attribute(kWebDAVShared, {"0"}));
      EXPECT_EQ(left.find(attribute(kPath, {"/srv/Projects"})) != std::string::npos, !own.empty());
    }
  }
  // A record that is a link loses the link only.
  host.write("/elsewhere.plist", dictionary(nameAndPath("Projects", "/old")));
  host.remove(kRecordFolder + "/Projects.plist");
  host.makeLink(kRecordFolder + "/Projects.plist", "/elsewhere.plist");
  EXPECT_EQ(host.tesselctl({"unshare", "Projects"}).status, 0);
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
  EXPECT_TRUE(host.exists("/elsewhere.plist"));
}

}  // namespace
