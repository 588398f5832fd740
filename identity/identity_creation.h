// Making a self-signed TLS identity.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/keychain/keychain.h"

namespace tessel {

// Makes a key pair and a self-signed certificate for the name in the system keychain, with access
// for the given programs and this one. None, after a message, when it cannot be made.
std::optional<Identity> makeSelfSignedIdentity(
    const std::string& name, const std::vector<std::string>& allowedExecutablePaths);

// The same, and exports both; a failed export does not count.
std::optional<Identity> CreateSelfSignedIdentityNamed(
    const std::string& name, const std::vector<std::string>& allowedExecutablePaths);

}  // namespace tessel
