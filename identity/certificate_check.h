// What start does about TLS: makes sure that there is an exported identity.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "identity/identity_manager.h"

namespace tessel {

struct CertificateCheck {
  bool succeeded = false;
  // The identity to tell Apache of. Null when what was exported earlier is still there, so that
  // there is nothing new to tell.
  std::unique_ptr<IdentityManager> identityManager;
};

// Does nothing while the files of the current certificate ID, which Apache's environment has,
// exist. Otherwise looks an identity up for the configured name, or for the host's where that is
// empty, and makes one if there is none. Prints what it does, and why it fails.
CertificateCheck checkCertsAndExportIfNeeded(const std::optional<std::string>& currentCertID,
                                             const std::string& configuredServerName);

}  // namespace tessel
