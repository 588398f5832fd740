// The certificates of the authorities that the system trusts: the folder and the file that OpenSSL
// was built for. A host may have only one of the two, or none.
#pragma once

#include <openssl/x509.h>

#include <vector>

namespace tessel {

// Has the store look for an issuer in the folder, by its name, when it meets one.
void addAnchorFolder(X509_STORE* store);

// Puts those authorities of the file into the store that have the name of an issuer of one of these
// certificates, or of each other. The file holds many more, and decoding them all, with their
// public keys, takes longer than all else that a command does. What cannot be read is no authority.
void addAnchorsFromFile(X509_STORE* store, const std::vector<const X509*>& certificates);

}  // namespace tessel
