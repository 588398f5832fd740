#include "identity/identity_manager.h"
#include "platform/files/file_manager.h"
#include "platform/files/folder_lock.h"
#include "platform/files/path.h"
#include "platform/keychain/random.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

constexpr const char* kPassPhraseToolPath = "/etc/tessel/getSSLPassPhrase.sh";
constexpr mode_t kKeyMode = 0600;
constexpr mode_t kPassPhraseToolMode = 0700;

// What is to be told of the writing, once nobody has to wait for it any more.
struct Outcome {
  bool keyIsWritten = false;
  std::optional<std::string> failure;
};

// A file that has its mode before it has any content. Returns the message when that fails.
std::optional<std::string> writePrivateFile(const std::string& path, mode_t mode,
                                            std::string_view content,
                                            const std::string& creationFailure,
                                            const std::string& writeFailure) {
  const FileManager files;
  if (files.createFile(path, mode)) return creationFailure + path;
  if (files.writeInPlace(path, content)) return writeFailure + path;
  return std::nullopt;
}

Outcome writeFiles(const std::string& certID, const std::string& key,
                   const std::string& certificate, const Secret& passPhrase) {
  Outcome outcome;
  // Two exports at once would leave the key of one beside the pass phrase of the other. Only root
  // can open the folder, and so make an export wait; without the lock the files are written as
  // well.
  const auto lock = lockFolder(parentDirectory(kSystemKeychainPath));
  outcome.failure = writePrivateFile(exportedKeyPath(certID), kKeyMode, key,
                                     "Failed to create exported key file at ",
                                     "Failed to write exported key to ");
  if (outcome.failure) return outcome;
  outcome.keyIsWritten = true;

  const std::string certificatePath = exportedCertificatePath(certID);
  if (FileManager().writeAtomically(certificatePath, certificate, FileManager::Attributes::Fresh)) {
    outcome.failure = "Failed to write exported cert to " + certificatePath;
    return outcome;
  }

  const Secret script{"#!/bin/sh\necho '", passPhrase.view(), "'"};
  outcome.failure = writePrivateFile(kPassPhraseToolPath, kPassPhraseToolMode, script.view(),
                                     "Failed to create pass phrase tool file at ",
                                     "Failed to write pass phrase tool to ");
  return outcome;
}

}  // namespace

std::string exportedKeyPath(const std::string& certID) {
  return "/etc/tessel/" + certID + ".key.pem";
}

std::string exportedCertificatePath(const std::string& certID) {
  return "/etc/tessel/" + certID + ".cert.pem";
}

bool IdentityManager::exportIdentity(const Identity& identity, const Certificate& certificateRef,
                                     const PrivateKey& keyRef) {
  const auto passPhrase = randomUUID();
  const ExportedPEM key = passPhrase ? keyRef.encryptedPEM(*passPhrase) : ExportedPEM{-1, {}};
  if (key.status != 0) {
    reportError("SecKeychainItemExport failed: " + std::to_string(key.status));
    return false;
  }
  const auto certID = CertIDForIdentity(identity);
  const ExportedPEM certificate = certID ? certificateRef.pem() : ExportedPEM{-1, {}};
  if (certificate.status != 0) {
    reportError("SecItemExport: " + std::to_string(certificate.status));
    return false;
  }

  const Outcome outcome = writeFiles(*certID, key.text, certificate.text, *passPhrase);
  if (outcome.keyIsWritten) printLine("Exported encrypted key to " + exportedKeyPath(*certID));
  if (outcome.failure) {
    reportError(*outcome.failure);
    return false;
  }
  printLine("Identity export succeeded");
  return true;
}

}  // namespace tessel
