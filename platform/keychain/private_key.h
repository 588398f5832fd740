// Private keys of TLS servers: RSA, elliptic curves or Edwards curves. A handle to an immutable
// object, cheap to copy.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/base/result.h"
#include "platform/base/secret.h"
#include "platform/keychain/digest.h"

// The cryptographic library's own name of the object.
struct evp_pkey_st;

namespace tessel {

// Every error is the cryptographic library's reason, unless it says otherwise.
class PrivateKey {
 public:
  static Result<PrivateKey> generateRSA(unsigned bits);
  static Result<PrivateKey> fromDER(std::string_view der);
  // The first key of a PEM file, whatever else is in it, or the one of a DER file. An encrypted key
  // is refused, and so is one without a traditional form (see encryptedPEM) or whose halves do not
  // fit; the error says so.
  static Result<PrivateKey> fromFile(std::string_view bytes);

  // PKCS#8 (RFC 5208), not encrypted.
  Result<Secret> der() const;

  // PEM in the traditional form ("BEGIN RSA PRIVATE KEY" with a "Proc-Type: 4,ENCRYPTED" header,
  // RFC 1421), encrypted with AES-256 in CBC mode under the pass phrase. The error has the
  // library's number as its code, which is positive.
  Result<std::string> encryptedPEM(const Secret& passPhrase) const;

  // The public half's SubjectPublicKeyInfo (RFC 5280) in DER, and its SHA-256.
  Result<std::string> publicKeyDER() const;
  Result<SHA256Digest> publicKeyDigest() const;

  // Whether the public half confirms what the private half signs. Decoding looks at neither, so
  // that a key of which a byte has changed may still be one. Tried for RSA and elliptic curves.
  Status halvesFit() const;

  evp_pkey_st* handle() const { return key_.get(); }

 private:
  explicit PrivateKey(std::shared_ptr<evp_pkey_st> key) : key_(std::move(key)) {}
  std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace tessel
