#include "host/debian/httpd_wrapper/exported_identity.h"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string_view>

#include "contract/paths.h"
#include "platform/files/file_manager.h"
#include "platform/files/lock.h"
#include "platform/files/path.h"
#include "platform/keychain/random.h"
#include "platform/keychain/served_identity.h"

namespace tessel {

namespace {

constexpr mode_t kKeyMode = 0600;
constexpr mode_t kScriptMode = 0700;
constexpr size_t kLargestFile = 1'000'000;
constexpr std::chrono::seconds kPatience{10};
// The script as tesselctl writes it.
constexpr std::string_view kScriptHead = "#!/bin/sh\necho '";
constexpr std::string_view kScriptTail = "'";

// The pass phrase in force. None without a script, or with the empty one of an export that was cut
// short; an error when somebody else has written it, since nobody knows what it tells whom.
Result<std::optional<Secret>> presentPassPhrase() {
  const FileManager files;
  std::optional<Secret> passPhrase;
  if (files.isAbsent(kPassPhraseToolFile)) return passPhrase;
  const auto script = files.readSecretFile(kPassPhraseToolFile, kLargestFile);
  if (!script) return script.error();
  std::string_view text = script->view();
  if (text.empty()) return passPhrase;
  const bool startsAsOurs = text.starts_with(kScriptHead);
  if (startsAsOurs) text.remove_prefix(kScriptHead.size());
  if (!startsAsOurs || text.find(kScriptTail) + 1 != text.size()) {
    return Error{std::string(kPassPhraseToolFile) + " is not as tesselctl writes it"};
  }
  text.remove_suffix(kScriptTail.size());
  passPhrase.emplace(Secret{text});
  return passPhrase;
}

}  // namespace

Result<FileDescriptor> lockExports() {
  auto lock = lockFolder(parentDirectory(kSystemKeychainPath),
                         {kPatience, kPatience, [](const std::string& /*holder*/) {}});
  if (!lock) return lock.error();
  if (!*lock) return Error{"another export of an identity does not end"};
  return *std::move(*lock);
}

Status exportedFits(const std::string& certID) {
  const FileManager files;
  const auto certificate = files.readFile(exportedCertificatePath(certID), kLargestFile);
  if (!certificate) return certificate.error();
  const auto key = files.readFile(exportedKeyPath(certID), kLargestFile);
  if (!key) return key.error();
  const auto passPhrase = presentPassPhrase();
  if (!passPhrase) return passPhrase.error();
  return keyFitsCertificate(*certificate, *key, *passPhrase ? (*passPhrase)->view() : "");
}

Status exportUnderPresentPassPhrase(const std::string& certID, const Identity& identity) {
  const FileManager files;
  auto present = presentPassPhrase();
  if (!present) return present.error();
  const bool isNew = !*present;
  auto passPhrase = isNew ? randomUUID() : Result<Secret>(*std::move(*present));
  if (!passPhrase) return passPhrase.error();
  const auto key = identity.privateKey.encryptedPEM(*passPhrase);
  if (!key) return key.error();
  const auto certificate = identity.certificate.pem();
  if (!certificate) return certificate.error();
  if (Status written = files.writeAtomically(exportedKeyPath(certID), *key, kKeyMode); !written) {
    return written;
  }
  Status written =
      files.writeAtomically(exportedCertificatePath(certID), *certificate, kSharedFileMode);
  if (!written || !isNew) return written;
  const Secret script{kScriptHead, passPhrase->view(), kScriptTail};
  return files.writeAtomically(kPassPhraseToolFile, script.view(), kScriptMode);
}

Status mendExported(const std::string& certID) {
  if (!presentPassPhrase()) return {};
  Status fits = exportedFits(certID);
  if (fits) return fits;
  const auto file = FileManager().readFile(exportedCertificatePath(certID), kLargestFile);
  const auto certificates = file ? Certificate::allFromFile(*file) : file.error();
  const auto keychain = Keychain::open(kSystemKeychainPath);
  if (!certificates || !keychain) return fits;
  const auto identity = keychain->identityWithCertificate(certificates->front());
  return identity ? exportUnderPresentPassPhrase(certID, *identity) : fits;
}

}  // namespace tessel
