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

// Whether the chain ended where more authorities might have continued it.
bool lacksAuthority(int error) {
  switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return true;
    default:
      return false;
  }
}

// Whether the issuer of the last certificate was found nowhere.
bool lacksIssuer(int error) {
  return lacksAuthority(error) && error != X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN;
}

}  // namespace

Result<ServerPolicy> ServerPolicy::create(const std::string& hostName) {
  ServerPolicy policy;
  policy.parameters_ = {X509_VERIFY_PARAM_new(), X509_VERIFY_PARAM_free};
  policy.hostName_ = hostName;
  if (!policy.parameters_ ||
      X509_VERIFY_PARAM_set_purpose(policy.parameters_.get(), X509_PURPOSE_SSL_SERVER) != 1) {
    return opensslError();
  }
  return policy;
}

Result<Trust> Trust::create(const Certificate& certificate, const ServerPolicy& policy,
                            const std::vector<Certificate>& others) {
  Trust trust(certificate, policy);
  trust.others_ = others;
  trust.chain_ = {sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); }};
  trust.anchors_ = {X509_STORE_new(), X509_STORE_free};
  if (!trust.chain_ || !trust.anchors_) return opensslError();
  for (const Certificate& other : trust.others_) {
    if (sk_X509_push(trust.chain_.get(), other.handle()) == 0) return opensslError();
  }
  if (X509_STORE_set1_param(trust.anchors_.get(), policy.parameters_.get()) != 1) {
    return opensslError();
  }
  addAnchorFolder(trust.anchors_.get());
  return trust;
}

TrustResult Trust::evaluate() const {
  const Verification result = verifyWithAll();
  if (result.verified < 0) return TrustResult::Invalid;
  if (result.verified == 0) {
    return isBroken(result.error) ? TrustResult::FatalFailure : TrustResult::RecoverableFailure;
  }
  return certificate_.isForHost(policy_.hostName_) ? TrustResult::Unspecified
                                                   : TrustResult::RecoverableFailure;
}

Trust::Verification Trust::verifyWithAll() const {
  Verification result = verify();
  // The file of authorities takes longer to read than all the rest. Who signed a certificate of his
  // own is not in it.
  if (result.verified != 0 || !lacksAuthority(result.error) || certificate_.isSelfSigned()) {
    return result;
  }
  std::vector<const X509*> handles{certificate_.handle()};
  for (const Certificate& other : others_) handles.push_back(other.handle());
  addAnchorsFromFile(anchors_.get(), handles);
  return verify();
}

Trust::Verification Trust::verify() const {
  const OpenSSLPointer<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  if (!context || X509_STORE_CTX_init(context.get(), anchors_.get(), certificate_.handle(),
                                      chain_.get()) != 1) {
    ERR_clear_error();
    return {-1, X509_V_ERR_OUT_OF_MEM, {}};
  }
  Verification result;
  result.verified = X509_verify_cert(context.get());
  result.error = X509_STORE_CTX_get_error(context.get());
  const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context.get());
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    result.chain.push_back(Certificate::of(sk_X509_value(chain, i)));
  }
  ERR_clear_error();
  return result;
}

Result<ServedChain> servedChain(const Certificate& certificate,
                                const std::vector<Certificate>& others) {
  const auto policy = ServerPolicy::create("");
  const auto trust = policy ? Trust::create(certificate, *policy, others) : policy.error();
  if (!trust) return trust.error();
  Trust::Verification result = trust->verifyWithAll();
  if (result.verified < 0) return Error{"memory is short"};
  ServedChain served;
  if (result.chain.empty()) return served;
  const bool endsWithAuthority = result.verified == 1 || result.chain.back().isSelfSigned();
  served.isComplete = endsWithAuthority || !lacksIssuer(result.error);
  if (endsWithAuthority && result.chain.size() > 1) result.chain.pop_back();
  served.intermediates.assign(result.chain.begin() + 1, result.chain.end());
  return served;
}

}  // namespace tessel
