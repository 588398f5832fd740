// Whether a certificate is to be trusted as that of a TLS server.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/keychain/certificate.h"

struct X509_VERIFY_PARAM_st;
struct stack_st_X509;
struct x509_store_st;

namespace tessel {

// The results that an evaluation can have, with the host's own numbers.
enum class TrustResult {
  Invalid = 0,             // no result
  Proceed = 1,             // by an explicit user setting
  Unspecified = 4,         // valid under the system's anchors
  RecoverableFailure = 5,  // the administrator can mend it: issuer, date, host name, self-signed
  FatalFailure = 6,        // the certificate or a signature is broken
};

struct ServedChain;

// The purpose "SSL server" for one host name or address. An address counts only against the
// addresses that a certificate has, a name that begins with a full stop against nothing.
class ServerPolicy {
 public:
  // Fails when memory is short.
  static Result<ServerPolicy> create(const std::string& hostName);

 private:
  friend class Trust;
  std::shared_ptr<X509_VERIFY_PARAM_st> parameters_;
  std::string hostName_;
};

// One certificate about to be evaluated under a policy.
class Trust {
 public:
  // The anchors are the system's, whatever the environment says (trust_anchors.h). The other
  // certificates may complete the chain, but never end it. Fails when memory is short.
  static Result<Trust> create(const Certificate& certificate, const ServerPolicy& policy,
                              const std::vector<Certificate>& others);

  // Invalid when the evaluation itself fails.
  TrustResult evaluate() const;

 private:
  friend Result<ServedChain> servedChain(const Certificate& certificate,
                                         const std::vector<Certificate>& others);
  Trust(Certificate certificate, ServerPolicy policy)
      : certificate_(std::move(certificate)), policy_(std::move(policy)) {}

  // X509_verify_cert(3)'s result, for 0 the reason by its number, and what it looked at.
  struct Verification {
    int verified = 0;
    int error = 0;
    std::vector<Certificate> chain;  // as far as it was found, the certificate first
  };
  Verification verify() const;
  // The same with the system's file of authorities, if need be.
  Verification verifyWithAll() const;

  Certificate certificate_;
  ServerPolicy policy_;
  std::vector<Certificate> others_;
  std::shared_ptr<stack_st_X509> chain_;  // of the others
  std::shared_ptr<x509_store_st> anchors_;
};

// What a server sends with its certificate.
struct ServedChain {
  // From the certificate's issuer upwards; the authority itself, which clients have, is left out.
  std::vector<Certificate> intermediates;
  // Whether the last of them, or the certificate, was issued by an authority of the system's, or by
  // one that is among the others. Otherwise something is missing.
  bool isComplete = false;
};

// The chain of a certificate as far as these others and the system's anchors give it. Fails when
// memory is short.
Result<ServedChain> servedChain(const Certificate& certificate,
                                const std::vector<Certificate>& others);

}  // namespace tessel
