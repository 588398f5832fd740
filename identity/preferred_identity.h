// Which of the keychain's identities a server uses.
#pragma once

#include <optional>
#include <string>

#include "platform/keychain/keychain.h"

namespace tessel {

// The identity to use for a server name, which has been exported by then (identity_export.h).
// Trusted ones go before those of an unknown issuer, those before self-signed ones; within a class,
// the last added wins. Prints what it finds. None when there is none or its export fails.
std::optional<Identity> GetPreferredIdentityForName(const std::string& name);

}  // namespace tessel
