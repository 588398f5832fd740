#include "identity/preferred_identity.h"

#include <vector>

#include "identity/candidates.h"
#include "identity/identity_export.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

// What is printed of a class of identities.
struct ClassText {
  const char* found;
  const char* used;
};

ClassText textOf(IdentityClass identityClass) {
  switch (identityClass) {
    case IdentityClass::Trusted:
      return {"Found trusted identity in keychain", "Using identity with trusted cert"};
    case IdentityClass::IssuedByUnknown:
      return {"Found non-self-signed but non-trusted identity in keychain",
              "Using identity with non-trusted but non-self-signed cert"};
    default:
      return {"Found self-signed identity in keychain", "Using identity with self-signed cert"};
  }
}

}  // namespace

std::optional<Identity> GetPreferredIdentityForName(const std::string& name) {
  const Result<Keychain> keychain = Keychain::open(kSystemKeychainPath);
  if (!keychain) {
    reportError("SecKeychainOpen error: " + keychain.error().description);
    return std::nullopt;
  }
  // A failed search is as silent as one that finds nothing. Damage is not: without a word, another
  // identity would be used or made.
  const auto found = keychain->identities(name);
  if (!found) return std::nullopt;
  for (const std::string& damage : found->damage) {
    printErrorLine("The keychain is damaged, " + damage);
  }
  const std::vector<Identity>& identities = found->identities;
  if (identities.empty()) return std::nullopt;
  const auto others = keychain->certificates();
  const Candidates candidates =
      judgeCandidates(identities, name, others ? *others : std::vector<Certificate>());
  for (const Candidate& candidate : candidates.judged) {
    printLine(std::string(textOf(candidate.identityClass).found) + "; commonName = " + name);
  }
  if (!candidates.status) reportError(candidates.status.error().description);

  const auto preferred = preferredOf(candidates.judged);
  if (!preferred) return std::nullopt;
  printLine(textOf(preferred->identityClass).used);
  // What is exported is the candidate looked at last, under the name of the chosen one. With more
  // than one candidate the two can differ; Apache's set-up has come to rely on it.
  const Identity& chosen = identities[preferred->index];
  const Identity& last = identities[candidates.lookedAt - 1];
  if (!exportIdentity(chosen, last.certificate, last.privateKey)) {
    printLine("Found identity for name " + name + " is not exportable");
    return std::nullopt;
  }
  return chosen;
}

}  // namespace tessel
