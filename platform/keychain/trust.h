// Whether a certificate is to be trusted as that of a TLS server.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/keychain/certificate.h"

struct X509_VERIFY_PARAM_st;
struct x509_store_ctx_st;
struct x509_store_st;
struct stack_st_X509;

namespace tessel {

// The results that an evaluation can have, with the host's own numbers.
enum class TrustResult {
  Invalid = 0,             // no result
  Proceed = 1,             // by an explicit user setting
  Unspecified = 4,         // valid under the system's anchors
  RecoverableFailure = 5,  // the administrator can mend it: issuer, date, host name, self-signed
  FatalFailure = 6,        // the certificate or a signature is broken
};

// The purpose "SSL server" for one host name or address.
class ServerPolicy {
 public:
  // None when memory is short.
  static std::optional<ServerPolicy> create(const std::string& hostName);

 private:
  friend class Trust;
  std::shared_ptr<X509_VERIFY_PARAM_st> parameters_;
  std::string hostName_;
};

// One certificate about to be evaluated under a policy.
class Trust {
 public:
  // The anchors are the system's: the file and folder that OpenSSL was built for, whatever the
  // environment says. The other certificates may complete the chain, but never end it. None when
  // memory is short.
  static std::optional<Trust> create(const Certificate& certificate, const ServerPolicy& policy,
                                     const std::vector<Certificate>& others);

  // Invalid when the evaluation itself fails. To be called once.
  TrustResult evaluate() const;

 private:
  explicit Trust(Certificate certificate) : certificate_(std::move(certificate)) {}

  Certificate certificate_;
  std::string hostName_;
  std::vector<Certificate> others_;
  std::shared_ptr<stack_st_X509> chain_;  // of the others
  std::shared_ptr<x509_store_st> anchors_;
  std::shared_ptr<x509_store_ctx_st> context_;  // uses all of the above
};

}  // namespace tessel
