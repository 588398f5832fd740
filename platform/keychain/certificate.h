// X.509 certificates (RFC 5280) and private keys. Both are handles to immutable objects and cheap
// to copy.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"
#include "platform/base/secret.h"
#include "platform/keychain/digest.h"

// The cryptographic library's own names of its objects.
struct evp_pkey_st;
struct x509_st;

namespace tessel {

// A text, or the cryptographic library's code for why there is none.
struct ExportedPEM {
  int status = 0;  // 0 on success
  std::string text;
};

class PrivateKey {
 public:
  static Result<PrivateKey> generateRSA(unsigned bits);
  // RSA, elliptic curves or Edwards curves, as TLS servers have them; so does the next.
  static Result<PrivateKey> fromDER(std::string_view der);
  // PEM or DER, in any form but an encrypted one, which the error names.
  static Result<PrivateKey> fromFile(std::string_view bytes);

  // PKCS#8 (RFC 5208), not encrypted; none when the library refuses.
  std::optional<Secret> der() const;

  // PEM in the traditional form ("BEGIN RSA PRIVATE KEY" with a "Proc-Type: 4,ENCRYPTED" header,
  // RFC 1421), encrypted with AES-256 in CBC mode under the pass phrase.
  ExportedPEM encryptedPEM(const Secret& passPhrase) const;

  // The SHA-256 of the public half's SubjectPublicKeyInfo; none when the library refuses.
  std::optional<SHA256Digest> publicKeyDigest() const;
  // That SubjectPublicKeyInfo in DER.
  std::string publicKeyDER() const;

  evp_pkey_st* handle() const { return key.get(); }

 private:
  explicit PrivateKey(std::shared_ptr<evp_pkey_st> key) : key(std::move(key)) {}
  std::shared_ptr<evp_pkey_st> key;
};

// What a certificate made here says that is not the same for all of them.
struct CertificateRequest {
  std::string commonName;
  std::optional<std::string> country;  // ISO 3166-1, two letters
  std::uint32_t serialNumber = 0;
  int validityDays = 0;
};

class Certificate {
 public:
  static Result<Certificate> fromDER(std::string_view der);
  // All certificates of a PEM file in order, or the one of a DER file. Never an empty list.
  static Result<std::vector<Certificate>> allFromFile(std::string_view bytes);

  // A version 3 certificate for a TLS server whose one DNS name is the common name, signed with its
  // own key and SHA-256, valid from now on. Fails with the library's reason, for instance for a
  // common name of more than 64 characters (RFC 5280, ub-common-name) or one that is no ASCII text.
  static Result<Certificate> createSelfSigned(const CertificateRequest& request,
                                              const PrivateKey& key);

  std::string der() const;
  ExportedPEM pem() const;
  // The subject's (last) common name as UTF-8; none when it has none.
  std::optional<std::string> commonName() const;
  // The day it expires (UTC) as YYYY-MM-DD, empty when it cannot be read.
  std::string expiryDay() const;
  // Whether its subject issued it and its own key signed it.
  bool isSelfSigned() const;
  std::optional<SHA256Digest> publicKeyDigest() const;

  x509_st* handle() const { return certificate.get(); }

 private:
  explicit Certificate(std::shared_ptr<x509_st> certificate)
      : certificate(std::move(certificate)) {}
  std::shared_ptr<x509_st> certificate;
};

}  // namespace tessel
