// share and unshare: what is refused, what is printed, what the record says afterwards, and when
// Apache is restarted.
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
  expectRun(host, {"unshare", "Projects"}, {1, "", red("No share point named 'Projects'") + "\n"},
            "");
}

TEST(Share, WithoutAPathIsSilentSuccess) {
  ShareHost host;
  expectRun(host, {"share"}, {0, "", ""}, "");
  expectRun(host, {"unshare"}, {0, "", ""}, "");
}

TEST(Share, ModesDoNotDependOnTheShell) {
  ShareHost host;
  EXPECT_EQ(host.shell("umask 077; tesselctl share /srv/Projects").status, 0);
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
  const std::string reserved = " contains reserved string \"webdav\" as a path component";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"webdav", reserved},
      {"/webdav", reserved},
      {"/srv/webdav/Projects", reserved},
      {"/srv/webdav/", reserved},
      {"/nowhere/webdav/..", reserved},
      {"webdav//", reserved},
      {"", " does not exist"},
      {"/nowhere", " does not exist"},
      {"/srv/nowhere/../Projects", " does not exist"},
      {"~", " does not exist"},
      {"~root/", " does not exist"},
      {"/srv/dangling", " does not exist"},
      {"/srv/file/", " does not exist"},
      {"/srv/file", " is not a directory"},
  };
  for (const auto& [path, reason] : cases) {
    expectRun(host, {"share", path},
              {1, "", red("Cannot share: Specified path '" + path + "'" + reason) + "\n"}, "");
  }
  for (const char* path : {"/srv/WebDAV/Projects", "/srv/webdav2", "/srv/link"}) {
    expectRun(host, {"share", path}, {1, "", red("Cannot create Nexa session") + "\n"}, "");
  }
  host.makeFolder("/var/lib/directory");
  expectRun(host, {"share", "/srv/Projects"}, {1, "", red("Cannot create Nexa node") + "\n"}, "");
  expectRun(host, {"unshare", "srv"}, {1, "", red("Cannot create Nexa node") + "\n"}, "");
  host.remove("/var/lib/directory");
  expectRun(host, {"unshare", "srv"}, {1, "", red("Cannot create Nexa session") + "\n"}, "");
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

struct TypedPath {
  const char* typed;  // in /srv
  const char* name;
  const char* file;
  const char* path;
};

TEST(Share, TakesTheNameAsTypedAndThePathStandardized) {
  ShareHost host;
  host.write("/etc/passwd", "root:x:0:0::/var/root:/bin/sh\nann:x:1000:1000::/Users/ann:/bin/sh\n");
  for (const char* folder : {"/srv/~/Work", "/srv/~ann/Work", "/private/var/here", "/private/only",
                             "/private/private/twice", "/private/twice", "/twice", "/var/here"}) {
    host.makeFolder(folder);
  }
  host.makeLink("/srv/Latest", "/srv/Projects");
  const std::vector<TypedPath> cases{
      {"Projects", "Projects", "Projects.plist", "Projects"},
      {"//srv/./Other/../Projects/", "Projects", "Projects.plist", "/srv/Projects"},
      {"Latest", "Latest", "Latest.plist", "Latest"},
      {"/srv/Latest/", "Latest", "Latest.plist", "/srv/Latest"},
      {"/", "/", "%2F.plist", "/"},
      {"..", "..", "%2E..plist", ".."},
      {"~", "~", "~.plist", "/var/root"},
      {"~/Work", "Work", "Work.plist", "/var/root/Work"},
      {"~ann/Work/", "Work", "Work.plist", "/Users/ann/Work"},
      {"/private/var/here", "here", "here.plist", "/var/here"},
      {"/private/only", "only", "only.plist", "/private/only"},
      {"/private/private/twice", "twice", "twice.plist", "/private/twice"},
  };
  for (const TypedPath& tried : cases) {
    host.remove(kRecordFolder);
    const Outcome outcome = host.shell(
        std::string("cd /srv && HOME=/elsewhere exec tesselctl share '") + tried.typed + "'");
    EXPECT_EQ(outcome.output, created(tried.name)) << tried.typed;
    EXPECT_EQ(outcome.errors, "") << tried.typed;
    EXPECT_EQ(host.entries(tried.file), sharedEntries(tried.name, tried.path)) << tried.typed;
  }
}

TEST(Share, NoNameLeavesTheFolderOrHidesInIt) {
  ShareHost host;
  const std::vector<std::pair<std::string, std::string>> cases{
      {".hidden", "%2Ehidden.plist"},
      {"a\nb", "a%0Ab.plist"},
      {"Icon\r", "Icon%0D.plist"},
      {"caf\xC3\xA9", "caf\xC3\xA9.plist"},
      {"<&>\"'", "<&>\"'.plist"},
      {"-n", "-n.plist"},
      {std::string(249, 'n'), std::string(249, 'n') + ".plist"},
  };
  for (const auto& [name, fileName] : cases) {
    host.makeFolder("/srv/" + name);
    expectRun(host, {"share", "/srv/" + name}, {0, created(name), ""}, kRestart);
    EXPECT_EQ(host.recordNames(), std::vector<std::string>{fileName});
    EXPECT_EQ(host.tesselctl({"shares"}).output, kListingHead + row(name, "/srv/" + name, "Yes"));
    EXPECT_EQ(host.tesselctl({"unshare", name}).status, 0);
    EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
    host.calls();
  }
}

TEST(Share, NamesThatNoRecordCanHave) {
  ShareHost host;
  const std::string folder = kRecordFolder + "/";
  const std::string tooLong = ".plist: File name too long";
  const auto notHeld = [](const std::string& attribute) {
    return "a property list cannot hold the value of " + attribute +
           ", which is not UTF-8 or has control characters";
  };
  const std::string longName(250, 'n');
  std::string encoded;
  for (int i = 0; i < 84; ++i) encoded += "%25";
  const std::vector<std::pair<std::string, std::string>> cases{
      {longName, "cannot write " + folder + longName + tooLong},
      {std::string(84, '%'), "cannot write " + folder + encoded + tooLong},
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
    expectRun(host, {"unshare", "/srv/" + name},
              {1, "", red("No share point named '" + last + "'") + "\n"}, "");
  }
  EXPECT_EQ(host.names("/var/lib/directory/local"), std::vector<std::string>{"sharepoints"});
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
}

TEST(Share, TheEmptyNameIsNoRecord) {
  ShareHost host;
  host.record(".plist", nameAndPath("", "/srv"));
  expectRun(host, {"unshare", ""}, {1, "", red("No share point named ''") + "\n"}, "");
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{".plist"});
}

TEST(Share, KeepsWhatOtherProgramsWrote) {
  ShareHost host;
  const std::string others =
      "<key>Comment</key><string>kept as a string</string>"
      "<key>dsAttrTypeNative:sharepoint_group_id</key>"
      "<array><string>A &amp; B</string><string></string></array>" +
      attribute(kSMBShared, {"1"}) +
      "<key>afp</key><dict><key>guest</key><false/><key>limit</key><integer>-7</integer></dict>"
      "<key>big</key><integer>18446744073709551615</integer>"
      "<key>blob</key><data>AP8=</data>"
      "<key>empty</key><array/>"
      "<key>ratio</key><real>0.5</real>"
      "<key>when</key><date>2026-01-02T03:04:05Z</date>";
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

TEST(Share, GoesByTheFileNameOfARecord) {
  ShareHost host;
  host.record("Projects.plist", nameAndPath("a/../b", "/old"));
  expectRun(host, {"share", "/srv/Projects"}, {0, kUpdated, ""}, "");
  EXPECT_EQ(host.tesselctl({"shares"}).output,
            kListingHead + row("a/../b", "/srv/Projects", "Yes"));
  expectRun(host, {"unshare", "a/../b"}, {1, "", red("No share point named 'b'") + "\n"}, "");
  EXPECT_EQ(host.tesselctl({"unshare", "Projects"}).status, 0);
}

enum class Change { Deleted, FlagOff };

struct Decision {
  std::string flags;  // entries of the record
  std::string lines;
  Change change;
};

TEST(Unshare, DecidesByPresenceAndSpeaksByValue) {
  const std::string notSMB = "Share point is not SMB shared\n";
  const std::string isSMB = "Share point is SMB shared\n";
  const std::string notAFP = "Share point is not AFP shared\n";
  const std::string isAFP = "Share point is AFP shared\n";
  const std::string keeps = "Has other shares; updating attributes\n";
  const std::string deletes = "No other shares; deleting share point\nDeleted share point\n";
  const std::string smb = "<key>" + kSMBShared + "</key>";
  const std::string smbOn = smb + "<array><string>1</string></array>";
  const std::string smbOff = smb + "<array><string>0</string></array>";
  const std::string afpOn = attribute(kAFPShared, {"1"});
  const std::string afpOff = attribute(kAFPShared, {"0"});
  const std::vector<Decision> cases{
      {"", notSMB + notAFP + deletes, Change::Deleted},
      {afpOn, notSMB + isAFP + keeps, Change::FlagOff},
      {afpOff, notSMB + keeps, Change::FlagOff},
      {smbOn, isSMB + notAFP + keeps, Change::FlagOff},
      {smbOn + afpOn, isSMB + isAFP + keeps, Change::FlagOff},
      {smbOn + afpOff, isSMB + keeps, Change::FlagOff},
      {smbOff, notAFP + keeps, Change::FlagOff},
      {smbOff + afpOn, isAFP + keeps, Change::FlagOff},
      {smbOff + afpOff, keeps, Change::FlagOff},
      {smb + "<array><string>01</string></array>", notAFP + keeps, Change::FlagOff},
      {smb + "<array><string>0</string><string>1</string></array>", notAFP + keeps,
       Change::FlagOff},
      {smb + "<array/>", notSMB + notAFP + deletes, Change::Deleted},
      {smb + "<string>1</string>", isSMB + notAFP + keeps, Change::FlagOff},
      {smb + "<integer>1</integer>", isSMB + notAFP + keeps, Change::FlagOff},
  };
  ShareHost host;
  for (const Decision& tried : cases) {
    // A share that was never Tessel's is treated like any other.
    for (const std::string& own : {sharedEntries("Projects", "/srv/Projects"), std::string()}) {
      host.record("Projects.plist", own + tried.flags);
      SCOPED_TRACE(own + tried.flags);
      expectRun(host, {"unshare", "Projects/"}, {0, tried.lines, ""}, kRestart);
      if (tried.change == Change::Deleted) {
        EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
        continue;
      }
      const std::string left = host.entries("Projects.plist");
      EXPECT_NE(left.find(attribute(kWebDAVShared, {"0"})), std::string::npos) << left;
      EXPECT_EQ(left.find(attribute(kWebDAVName, {"Projects"})) != std::string::npos, !own.empty());
      EXPECT_EQ(left.find(attribute(kPath, {"/srv/Projects"})) != std::string::npos, !own.empty());
    }
  }
}

TEST(Unshare, ALinkedRecordLosesItsLinkOnly) {
  ShareHost host;
  host.write("/elsewhere.plist", dictionary(nameAndPath("Projects", "/old")));
  host.makeFolder(kRecordFolder);
  host.makeLink(kRecordFolder + "/Projects.plist", "/elsewhere.plist");
  EXPECT_EQ(host.tesselctl({"unshare", "Projects"}).status, 0);
  EXPECT_EQ(host.recordNames(), std::vector<std::string>{});
  EXPECT_TRUE(host.exists("/elsewhere.plist"));
}

}  // namespace
