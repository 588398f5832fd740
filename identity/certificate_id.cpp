#include "identity/certificate_id.h"

#include "platform/base/hexadecimal.h"

namespace tessel {

std::optional<std::string> CertIDForIdentity(const std::optional<Identity>& identity) {
  if (!identity) return std::nullopt;
  const auto commonName = identity->certificate.commonName();
  const auto der = identity->certificate.der();
  const auto digest = der ? CreateSHA256HashStringWithData(*der) : std::nullopt;
  if (!commonName || !digest) return std::nullopt;
  return *commonName + "." + *digest;
}

std::optional<std::string> CreateSHA256HashStringWithData(std::string_view data) {
  const auto digest = sha256(data);
  if (!digest) return std::nullopt;
  return hexadecimal(bytesOf(*digest));
}

}  // namespace tessel
