#include "host/debian/tessel_host/renewal_choice.h"

#include "identity/candidates.h"

namespace tessel {

namespace {

constexpr std::int64_t kSoon = 30LL * 86400;

Standing standingOf(IdentityClass identityClass, const RenewalCandidate& candidate) {
  if (candidate.untilBegin > 0) return Standing::Unusable;
  const bool isSelfSigned = identityClass == IdentityClass::SelfSigned;
  if (candidate.untilEnd <= 0) return isSelfSigned ? Standing::Unusable : Standing::ExpiredIssued;
  if (isSelfSigned) return Standing::SelfSigned;
  return identityClass == IdentityClass::Trusted ? Standing::Trusted : Standing::IssuedByUnknown;
}

}  // namespace

bool RenewalChoice::needsNewOne() const {
  return !best || (chosen().standing == Standing::SelfSigned && chosen().untilEnd < kSoon);
}

bool RenewalChoice::isSuperseded(const RenewalCandidate& candidate) const {
  // Its time may come.
  if (candidate.untilBegin > 0) return false;
  return candidate.isSelfSigned || candidate.standing == chosen().standing ||
         candidate.untilEnd <= chosen().untilEnd;
}

Result<RenewalChoice> chooseForRenewal(const Keychain& keychain, const std::string& name) {
  const auto found = keychain.identities(name);
  if (!found) return found.error();
  const auto others = keychain.certificates();
  if (!others) return others.error();
  const Candidates judged = judgeCandidates(found->identities, name, *others);
  if (!judged.status) return judged.status.error();

  RenewalChoice choice;
  choice.damage = found->damage;
  for (const Candidate& candidate : judged.judged) {
    RenewalCandidate next{found->identities[candidate.index], Standing::Unusable, false, 0, 0};
    next.isSelfSigned = next.identity.certificate.isSelfSigned();
    if (const auto validity = next.identity.certificate.validity()) {
      next.untilBegin = validity->untilBegin;
      next.untilEnd = validity->untilEnd;
      next.standing = standingOf(candidate.identityClass, next);
    }
    const bool isBest = next.standing != Standing::Unusable &&
                        (!choice.best || next.standing >= choice.chosen().standing);
    if (isBest) {
      choice.best = choice.candidates.size();
      choice.bestIsLast = candidate.index + 1 == found->identities.size();
    }
    choice.candidates.push_back(std::move(next));
  }
  return choice;
}

}  // namespace tessel
