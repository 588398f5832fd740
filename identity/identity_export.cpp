#include "identity/identity_manager.h"
#include "platform/console.h"
#include "platform/file_manager.h"

namespace tessel {

namespace {

constexpr const char* kPassPhraseToolPath = "/etc/tessel/getSSLPassPhrase.sh";
constexpr mode_t kKeyMode = 0600;
constexpr mode_t kPassPhraseToolMode = 0700;

// A file that has its mode before it has any content.
bool writePrivateFile(const std::string& path, mode_t mode, std::string_view content,
                      const std::string& creationFailure, const std::string& writeFailure) {
  const FileManager files;
  if (files.createFile(path, mode)) {
    reportError(creationFailure + path);
    return false;
  }
  if (files.writeInPlace(path, content)) {
    reportError(writeFailure + path);
    return false;
  }
  return true;
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

  const std::string keyPath = exportedKeyPath(*certID);
  if (!writePrivateFile(keyPath, kKeyMode, key.text, "Failed to create exported key file at ",
                        "Failed to write exported key to ")) {
    return false;
  }
  printLine("Exported encrypted key to " + keyPath);

  const std::string certificatePath = exportedCertificatePath(*certID);
  if (FileManager().writeAtomically(certificatePath, certificate.text,
                                    FileManager::Attributes::Fresh)) {
    reportError("Failed to write exported cert to " + certificatePath);
    return false;
  }

  const Secret script{"#!/bin/sh\necho '", passPhrase->view(), "'"};
  if (!writePrivateFile(kPassPhraseToolPath, kPassPhraseToolMode, script.view(),
                        "Failed to create pass phrase tool file at ",
                        "Failed to write pass phrase tool to ")) {
    return false;
  }
  printLine("Identity export succeeded");
  return true;
}

}  // namespace tessel
