// Which identity Apache serves with, told in files that it reads with its configuration: so it can
// be another one after a graceful restart, which keeps Apache's environment as it was.
#pragma once

#include <string>

#include "platform/base/result.h"

namespace tessel {

// Makes sure that what is exported under this ID fits, writes the intermediate certificates that
// the keychain has for it to /run/tessel/ID.chain.pem, and then that it is this ID to
// /run/tessel/identity.conf, which defines TESSEL_CERT_ID. An empty ID is told as it is.
// Each file is replaced as a whole, unless it is the same already, and none is removed, since an
// Apache may be about to read it. On failure Apache serves as it was told before, or without
// intermediates.
Status tellIdentity(const std::string& certificateID);

}  // namespace tessel
