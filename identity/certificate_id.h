// The name under which a certificate and its key are exported for Apache.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/keychain/keychain.h"

namespace tessel {

// The certificate ID: the subject's common name, a full stop and the certificate's SHA-256 in
// hexadecimal. None without an identity, without a common name, or when the cryptographic library
// refuses.
std::optional<std::string> CertIDForIdentity(const std::optional<Identity>& identity);

// The SHA-256 of the data as 64 lower-case hexadecimal digits. None as above.
std::optional<std::string> CreateSHA256HashStringWithData(std::string_view data);

}  // namespace tessel
