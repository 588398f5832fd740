#include "identity/candidates.h"

#include "platform/keychain/trust.h"

namespace tessel {

namespace {

Result<IdentityClass> classOf(const Certificate& certificate, const std::string& name,
                              const std::vector<Certificate>& others) {
  const auto policy = ServerPolicy::create(name);
  if (!policy) return Error{"Failed to create policy"};
  const auto trust = Trust::create(certificate, *policy, others);
  if (!trust) return Error{"Failed to create trust ref"};
  switch (trust->evaluate()) {
    case TrustResult::Invalid:
      return Error{"Failed to create trust result"};
    case TrustResult::Proceed:
    case TrustResult::Unspecified:
      return IdentityClass::Trusted;
    default:
      return certificate.isSelfSigned() ? IdentityClass::SelfSigned
                                        : IdentityClass::IssuedByUnknown;
  }
}

}  // namespace

Candidates judgeCandidates(const std::vector<Identity>& identities, const std::string& name,
                           const std::vector<Certificate>& others) {
  Candidates candidates;
  for (size_t i = 0; i < identities.size(); ++i) {
    candidates.lookedAt = i + 1;
    const Certificate& certificate = identities[i].certificate;
    if (certificate.commonName() != name) continue;
    const auto itsClass = classOf(certificate, name, others);
    if (!itsClass) {
      candidates.status = itsClass.error();
      break;
    }
    candidates.judged.push_back({i, *itsClass});
  }
  return candidates;
}

std::optional<Candidate> preferredOf(const std::vector<Candidate>& judged) {
  std::optional<Candidate> preferred;
  for (const Candidate& candidate : judged) {
    if (!preferred || candidate.identityClass >= preferred->identityClass) preferred = candidate;
  }
  return preferred;
}

}  // namespace tessel
