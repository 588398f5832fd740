#include <pwd.h>
#include <sys/stat.h>

#include <cstdio>

#include "contract/paths.h"
#include "host/debian/tessel_host/checks.h"
#include "host/debian/tessel_host/folder_access.h"
#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/keychain/keychain.h"

namespace tessel {

namespace {

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;

// `why` is what anybody could do who is let in.
void checkMode(const std::string& path, const char* owner, mode_t widest, const char* why,
               Findings& findings) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode)) return;
  const passwd* account = ::getpwnam(owner);
  const std::string name = shellWord(path);
  if (account != nullptr && status.st_uid != account->pw_uid) {
    warn(findings, shown(path), std::string("it is not ") + owner + "'s, so others may " + why,
         std::string("Run: chown ") + owner + " " + name);
  }
  if ((status.st_mode & kPermissionBits & ~widest) != 0) {
    std::string mode(sizeof "0000", '\0');
    mode.resize(static_cast<size_t>(
        std::snprintf(mode.data(), mode.size(), "%04o", static_cast<unsigned>(widest))));
    warn(findings, shown(path), std::string("it is open to others, who may ") + why,
         "Run: chmod " + mode + " " + name);
  }
}

void checkKeychain(Findings& findings) {
  const char* const kRestore = "Restore it from a backup, or remove it and run: tesselctl start";
  const auto keychain = Keychain::open(kSystemKeychainPath);
  const auto items = keychain ? keychain->items() : keychain.error();
  if (!items) {
    warn(findings, kSystemKeychainPath, shown(items.error().description), kRestore);
    return;
  }
  for (const KeychainItem& item : *items) {
    if (!item.damage) continue;
    const std::string id = std::to_string(item.id);
    warn(findings, kSystemKeychainPath, "item " + id + " is damaged: " + shown(*item.damage),
         "Run: tessel-keychain delete " + id + "; import what it was again");
  }
}

}  // namespace

void checkKeeping(Findings& findings) {
  const char* const kLock = "keep start and stop waiting";
  checkMode(kTesselStateFolder, "root", kPrivateFolder, kLock, findings);
  checkMode(parentDirectory(kSystemKeychainPath), "root", kPrivateFolder, kLock, findings);
  checkMode("/var/lib/directory/local/.sharepoints.lock", "root", kPrivateFile,
            "keep shares from being changed", findings);
  const char* const kRead = "read private keys";
  checkMode(kSystemKeychainPath, "root", kPrivateFile, kRead, findings);
  checkMode(kPassPhraseToolFile, "root", kPrivateFolder, kRead, findings);
  const auto names = FileManager().contentsOfDirectory(kTesselFolder);
  for (const std::string& name : names ? *names : std::vector<std::string>()) {
    if (name.ends_with(".key.pem")) {
      checkMode(appendPathComponent(kTesselFolder, name), "root", kPrivateFile, kRead, findings);
    }
  }
  checkMode("/var/lib/tessel-dav", kApacheUser, kPrivateFolder,
            "change the locks and properties of clients", findings);
  checkKeychain(findings);
}

}  // namespace tessel
