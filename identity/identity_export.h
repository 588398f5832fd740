// The files in which Apache finds a TLS identity.
#pragma once

#include "platform/keychain/keychain.h"

namespace tessel {

// Writes the key, encrypted under a new pass phrase, the certificate, and the script that prints
// the pass phrase to /etc/tessel, and prints what was written. The identity only names the files.
// Returns whether all three were written; what was written before a failure stays, after a message.
bool exportIdentity(const Identity& identity, const Certificate& certificateRef,
                    const PrivateKey& keyRef);

}  // namespace tessel
