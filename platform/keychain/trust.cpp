#include "platform/keychain/trust.h"

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "platform/keychain/openssl.h"
#include "platform/keychain/trust_anchors.h"

namespace tessel {

namespace {

bool isBroken(int error) {
  switch (error) {
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
    case X509_V_ERR_INVALID_EXTENSION:
    case X509_V_ERR_SIGNATURE_ALGORITHM_MISMATCH:
      return true;
    default:
      return false;
  }
}

bool namesHost(X509* certificate, const std::string& hostName) {
  const bool named =
      X509_check_host(certificate, hostName.data(), hostName.size(), 0, nullptr) == 1 ||
      X509_check_ip_asc(certificate, hostName.c_str(), 0) == 1;
  ERR_clear_error();
  return named;
}

}  // namespace

std::optional<ServerPolicy> ServerPolicy::create(const std::string& hostName) {
  ServerPolicy policy;
  policy.parameters_ = {X509_VERIFY_PARAM_new(), X509_VERIFY_PARAM_free};
  policy.hostName_ = hostName;
  if (!policy.parameters_ ||
      X509_VERIFY_PARAM_set_purpose(policy.parameters_.get(), X509_PURPOSE_SSL_SERVER) != 1) {
    return std::nullopt;
  }
  return policy;
}

std::optional<Trust> Trust::create(const Certificate& certificate, const ServerPolicy& policy,
                                   const std::vector<Certificate>& others) {
  Trust trust(certificate);
  trust.hostName_ = policy.hostName_;
  trust.others_ = others;
  trust.chain_ = {sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); }};
  trust.anchors_ = {X509_STORE_new(), X509_STORE_free};
  trust.context_ = {X509_STORE_CTX_new(), X509_STORE_CTX_free};
  if (!trust.chain_ || !trust.anchors_ || !trust.context_) return std::nullopt;
  std::vector<const X509*> handles{trust.certificate_.handle()};
  for (const Certificate& other : trust.others_) {
    if (sk_X509_push(trust.chain_.get(), other.handle()) == 0) return std::nullopt;
    handles.push_back(other.handle());
  }
  addTrustAnchors(trust.anchors_.get(), handles);
  if (X509_STORE_set1_param(trust.anchors_.get(), policy.parameters_.get()) != 1 ||
      X509_STORE_CTX_init(trust.context_.get(), trust.anchors_.get(), trust.certificate_.handle(),
                          trust.chain_.get()) != 1) {
    return std::nullopt;
  }
  return trust;
}

TrustResult Trust::evaluate() const {
  const int verified = X509_verify_cert(context_.get());
  ERR_clear_error();
  if (verified < 0) return TrustResult::Invalid;
  if (verified == 0) {
    return isBroken(X509_STORE_CTX_get_error(context_.get())) ? TrustResult::FatalFailure
                                                              : TrustResult::RecoverableFailure;
  }
  return namesHost(certificate_.handle(), hostName_) ? TrustResult::Unspecified
                                                     : TrustResult::RecoverableFailure;
}

}  // namespace tessel
