// Which identity of the system keychain is to be served for a name, and which ones it supersedes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/keychain/keychain.h"

namespace tessel {

// In the order in which one is preferred to another. An issued certificate that has expired stays
// until there is a better one: it still says more than one that anybody can make.
enum class Standing { Unusable, ExpiredIssued, SelfSigned, IssuedByUnknown, Trusted };

struct RenewalCandidate {
  Identity identity;
  Standing standing = Standing::Unusable;  // also of what has expired or is not valid yet
  bool isSelfSigned = false;
  std::int64_t untilBegin = 0;  // seconds
  std::int64_t untilEnd = 0;
};

struct RenewalChoice {
  std::vector<RenewalCandidate> candidates;  // in the keychain's order
  std::optional<size_t> best;                // of those of one standing the one added last
  std::vector<std::string> damage;           // what was passed over, "item 12: the reason"
  // Whether another identity has the name as its label and was added after the best one: tesselctl
  // would export that one's key in its place.
  bool bestIsLast = false;

  const RenewalCandidate& chosen() const { return candidates[*best]; }
  // Whether there is none to serve, or a self-signed one with less than 30 days left.
  bool needsNewOne() const;
  // Whether there is nothing left for which one would go back from the best to this one.
  bool isSuperseded(const RenewalCandidate& candidate) const;
};

// Among those whose label and common name are the name, judged as tesselctl does and by their
// dates. Fails when the keychain cannot be read or one of them cannot be judged.
Result<RenewalChoice> chooseForRenewal(const Keychain& keychain, const std::string& name);

}  // namespace tessel
