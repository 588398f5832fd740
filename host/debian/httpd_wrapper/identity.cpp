#include "host/debian/httpd_wrapper/identity.h"

#include "contract/paths.h"
#include "host/debian/httpd_wrapper/exported_identity.h"
#include "host/debian/httpd_wrapper/failure.h"
#include "platform/files/file_manager.h"
#include "platform/files/path.h"
#include "platform/keychain/certificate.h"
#include "platform/keychain/keychain.h"
#include "platform/keychain/trust.h"

namespace tessel {

namespace {

constexpr size_t kLargestFile = 1'000'000;

Status writeIfNew(const std::string& name, const std::string& content) {
  const FileManager files;
  const std::string path = appendPathComponent(kRunFolder, name);
  const auto present = files.readFile(path, kLargestFile);
  if (present && *present == content) return {};
  return files.writeAtomically(path, content, kSharedFileMode);
}

// The intermediates of the exported certificate in PEM, one after the other.
Result<std::string> intermediatesOf(const std::string& certificateID) {
  const auto file = FileManager().readFile(exportedCertificatePath(certificateID), kLargestFile);
  if (!file) return file.error();
  const auto own = Certificate::allFromFile(*file);
  if (!own) return Error{exportedCertificatePath(certificateID) + " " + own.error().description};
  const auto keychain = Keychain::open(kSystemKeychainPath);
  const auto others = keychain ? keychain->certificates() : keychain.error();
  if (!others) return others.error();
  const auto served = servedChain(own->front(), *others);
  if (!served) return served.error();
  std::string text;
  for (const Certificate& certificate : served->intermediates) {
    const auto pem = certificate.pem();
    if (!pem) return pem.error();
    text += *pem;
  }
  return text;
}

Status prepareExported(const std::string& certificateID) {
  const auto lock = lockExports();
  Status mended = lock ? mendExported(certificateID) : lock.error();
  const auto intermediates = intermediatesOf(certificateID);
  if (!intermediates) return intermediates.error();
  if (intermediates->empty()) return mended;
  Status written = writeIfNew(certificateID + ".chain.pem", *intermediates);
  return written ? mended : written;
}

}  // namespace

Status tellIdentity(const std::string& certificateID) {
  const FileManager files;
  if (Status made = files.createDirectory(kRunFolder, kRunFolderMode); !made) return made;
  Status told;
  if (!certificateID.empty()) told = prepareExported(certificateID);
  Status defined = writeIfNew("identity.conf", "Define TESSEL_CERT_ID \"" + certificateID + "\"\n");
  return defined ? told : defined;
}

}  // namespace tessel
