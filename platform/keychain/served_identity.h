// Whether a certificate and a key in files are what a TLS server can be given.
#pragma once

#include <string_view>

#include "platform/base/result.h"

namespace tessel {

// Success when the pass phrase opens the first private key of a PEM text (RFC 7468; a key that is
// not encrypted needs none) and that key is the one of the first certificate of the other. The
// error says what does not fit.
Status keyFitsCertificate(std::string_view certificatePEM, std::string_view keyPEM,
                          std::string_view passPhrase);

}  // namespace tessel
