// How the identities that the keychain has under a server name are judged, and which goes first.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/keychain/keychain.h"

namespace tessel {

// A later one goes before an earlier one.
enum class IdentityClass { SelfSigned, IssuedByUnknown, Trusted };

struct Candidate {
  size_t index = 0;  // among the identities
  IdentityClass identityClass = IdentityClass::SelfSigned;
};

struct Candidates {
  std::vector<Candidate> judged;  // in the identities' order
  size_t lookedAt = 0;            // how many of the identities
  Status status;                  // why the rest was not looked at
};

// Judges those of the identities whose common name is exactly the name. The other certificates may
// complete a chain. Their dates count only for whether they are trusted.
Candidates judgeCandidates(const std::vector<Identity>& identities, const std::string& name,
                           const std::vector<Certificate>& others);

// The first of them: the one of the highest class, and within it the one that was added last. None
// when there are none.
std::optional<Candidate> preferredOf(const std::vector<Candidate>& judged);

}  // namespace tessel
