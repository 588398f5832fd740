// The identity that is exported for Apache, its key under the pass phrase that the script prints.
// Apache knows one pass-phrase program, and may be told at any time to read its configuration: so a
// further identity is exported under the pass phrase in force, and each file is replaced as a
// whole.
#pragma once

#include <string>

#include "platform/base/result.h"
#include "platform/files/file_descriptor.h"
#include "platform/keychain/keychain.h"

namespace tessel {

// The lock under which tesselctl exports, which Apache holds while it reads what is exported. Fails
// when somebody has it for ten seconds. The rest is for whoever holds it.
Result<FileDescriptor> lockExports();

// Success when the pass phrase in force opens the key that is exported under this ID, and the key
// is the exported certificate's; otherwise what does not fit.
Status exportedFits(const std::string& certID);

// Writes the identity's key and certificate under this ID. Where no pass phrase is in force,
// nothing fits one, and there is a new one. Fails where somebody else has written the script. A run
// that is killed leaves what was there, or for a new ID a part that nothing refers to yet.
Status exportUnderPresentPassPhrase(const std::string& certID, const Identity& identity);

// Encrypts the exported key of this ID anew, from the keychain, unless it fits already: after
// another identity was exported under another pass phrase, or a run was killed in doing so. Leaves
// alone what depends on somebody else's script.
Status mendExported(const std::string& certID);

}  // namespace tessel
