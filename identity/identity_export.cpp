#include "identity/identity_export.h"

#include <chrono>
#include <string>
#include <utility>

#include "contract/paths.h"
#include "identity/certificate_id.h"
#include "platform/files/file_manager.h"
#include "platform/files/lock.h"
#include "platform/files/path.h"
#include "platform/keychain/random.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr mode_t kKeyMode = 0600;
constexpr mode_t kPassPhraseToolMode = 0700;

// How far the writing got. It is printed when the lock has been given back.
struct Outcome {
  bool keyIsWritten = false;
  Status status;
};

// A file that has its mode before it has any content.
Status writePrivateFile(const std::string& path, mode_t mode, std::string_view content,
                        const std::string& creationFailure, const std::string& writeFailure) {
  const FileManager files;
  if (!files.createFile(path, mode)) return Error{creationFailure + path};
  if (!files.writeInPlace(path, content)) return Error{writeFailure + path};
  return {};
}

Outcome writeFiles(const std::string& certID, const std::string& key,
                   const std::string& certificate, const Secret& passPhrase) {
  // Two exports at once would leave the key of one beside the pass phrase of the other. Who holds
  // the lock and hangs must not keep Tessel from being turned on; without it the files are written
  // as well.
  constexpr std::chrono::seconds kLongestWait(30);
  constexpr std::chrono::seconds kLongestSilence(1);
  const auto tell = [](const std::string& holder) {
    printErrorLine("Waiting for " + holder + ", which uses the exported identity...");
  };
  const auto lock =
      lockFolder(parentDirectory(kSystemKeychainPath), {kLongestWait, kLongestSilence, tell});
  if (lock && !*lock) printErrorLine("It does not end; going on without waiting for it.");
  Status written = writePrivateFile(exportedKeyPath(certID), kKeyMode, key,
                                    "Failed to create exported key file at ",
                                    "Failed to write exported key to ");
  if (!written) return {false, std::move(written)};

  const std::string certificatePath = exportedCertificatePath(certID);
  if (!FileManager().writeAtomically(certificatePath, certificate,
                                     FileManager::Attributes::Fresh)) {
    return {true, Error{"Failed to write exported cert to " + certificatePath}};
  }

  const Secret script{"#!/bin/sh\necho '", passPhrase.view(), "'"};
  return {true, writePrivateFile(kPassPhraseToolFile, kPassPhraseToolMode, script.view(),
                                 "Failed to create pass phrase tool file at ",
                                 "Failed to write pass phrase tool to ")};
}

}  // namespace

bool exportIdentity(const Identity& identity, const Certificate& certificateRef,
                    const PrivateKey& keyRef) {
  const auto passPhrase = randomUUID();
  const auto key = passPhrase ? keyRef.encryptedPEM(*passPhrase) : passPhrase.error();
  if (!key) {
    reportError("SecKeychainItemExport failed: " + std::to_string(key.error().code));
    return false;
  }
  const auto certID = CertIDForIdentity(identity);
  const auto certificate =
      certID ? certificateRef.pem() : Error{"the certificate has no name to be exported under", -1};
  if (!certificate) {
    reportError("SecItemExport: " + std::to_string(certificate.error().code));
    return false;
  }

  const Outcome outcome = writeFiles(*certID, *key, *certificate, *passPhrase);
  if (outcome.keyIsWritten) printLine("Exported encrypted key to " + exportedKeyPath(*certID));
  if (!outcome.status) {
    reportError(outcome.status.error().description);
    return false;
  }
  printLine("Identity export succeeded");
  return true;
}

}  // namespace tessel
