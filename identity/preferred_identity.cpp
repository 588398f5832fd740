#include "identity/preferred_identity.h"

#include <vector>

#include "identity/identity_export.h"
#include "platform/keychain/trust.h"
#include "platform/process/console.h"

namespace tessel {

namespace {

// What a look through the keychain found, and the last candidate that it looked at.
struct Scan {
  std::optional<Identity> trusted;
  std::optional<Identity> untrustedNotSelfSigned;
  std::optional<Identity> selfSigned;
  std::optional<Certificate> lastCertificate;
  std::optional<PrivateKey> lastKey;
};

std::optional<TrustResult> evaluateTrust(const Certificate& certificate, const std::string& name,
                                         const std::vector<Certificate>& others) {
  const auto policy = ServerPolicy::create(name);
  if (!policy) {
    reportError("Failed to create policy");
    return std::nullopt;
  }
  const auto trust = Trust::create(certificate, *policy, others);
  if (!trust) {
    reportError("Failed to create trust ref");
    return std::nullopt;
  }
  const TrustResult result = trust->evaluate();
  if (result == TrustResult::Invalid) {
    reportError("Failed to create trust result");
    return std::nullopt;
  }
  return result;
}

Scan scanCandidates(const std::vector<Identity>& candidates, const std::string& name,
                    const std::vector<Certificate>& others) {
  Scan scan;
  for (const Identity& candidate : candidates) {
    scan.lastCertificate = candidate.certificate;
    scan.lastKey = candidate.privateKey;
    const auto commonName = candidate.certificate.commonName();
    if (commonName != name) continue;

    const auto result = evaluateTrust(candidate.certificate, name, others);
    if (!result) break;
    if (*result == TrustResult::Proceed || *result == TrustResult::Unspecified) {
      printLine("Found trusted identity in keychain; commonName = " + *commonName);
      scan.trusted = candidate;
    } else if (candidate.certificate.isSelfSigned()) {
      printLine("Found self-signed identity in keychain; commonName = " + *commonName);
      scan.selfSigned = candidate;
    } else {
      printLine("Found non-self-signed but non-trusted identity in keychain; commonName = " +
                *commonName);
      scan.untrustedNotSelfSigned = candidate;
    }
  }
  return scan;
}

std::optional<Identity> choose(const Scan& scan) {
  if (scan.trusted) {
    printLine("Using identity with trusted cert");
    return scan.trusted;
  }
  if (scan.untrustedNotSelfSigned) {
    printLine("Using identity with non-trusted but non-self-signed cert");
    return scan.untrustedNotSelfSigned;
  }
  if (scan.selfSigned) printLine("Using identity with self-signed cert");
  return scan.selfSigned;
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
  if (found->identities.empty()) return std::nullopt;
  const auto others = keychain->certificates();
  const Scan scan =
      scanCandidates(found->identities, name, others ? *others : std::vector<Certificate>());

  auto chosen = choose(scan);
  if (!chosen) return std::nullopt;
  // What is exported is the candidate looked at last, under the name of the chosen one. With more
  // than one candidate the two can differ; Apache's set-up has come to rely on it.
  if (!exportIdentity(*chosen, *scan.lastCertificate, *scan.lastKey)) {
    printLine("Found identity for name " + name + " is not exportable");
    return std::nullopt;
  }
  return chosen;
}

}  // namespace tessel
