// X.509 certificates (RFC 5280). A handle to an immutable object, cheap to copy.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/result.h"
#include "platform/keychain/digest.h"
#include "platform/keychain/private_key.h"

// The cryptographic library's own name of the object.
struct x509_st;

namespace tessel {

// What a certificate made here says that is not the same for all of them.
struct CertificateRequest {
  std::string commonName;
  std::optional<std::string> country;  // ISO 3166-1, two letters
  std::uint32_t serialNumber = 0;
  int validityDays = 0;
};

class Certificate {
 public:
  // A handle to an object of the library's that others hold as well.
  static Certificate of(x509_st* certificate);
  static Result<Certificate> fromDER(std::string_view der);
  // All certificates of a PEM file in order, or the one of a DER file. Never an empty list.
  static Result<std::vector<Certificate>> allFromFile(std::string_view bytes);

  // A version 3 certificate for a TLS server whose one DNS name is the common name, signed with its
  // own key and SHA-256, valid from now on. Fails with the library's reason, for instance for a
  // common name of more than 64 characters (RFC 5280, ub-common-name) or one that is no ASCII text.
  static Result<Certificate> createSelfSigned(const CertificateRequest& request,
                                              const PrivateKey& key);

  Result<std::string> der() const;
  // The error has the library's number as its code, which is positive.
  Result<std::string> pem() const;
  // The SHA-256 of its DER form and of its SubjectPublicKeyInfo.
  Result<SHA256Digest> digest() const;
  Result<SHA256Digest> publicKeyDigest() const;

  // The subject's (last) common name as UTF-8; none when it has none.
  std::optional<std::string> commonName() const;
  // The day it expires (UTC) as YYYY-MM-DD; none when it cannot be read.
  std::optional<std::string> expiryDay() const;
  // The seconds from now until its first and its last moment, negative when they are past. An error
  // when they cannot be read.
  struct Validity {
    std::int64_t untilBegin = 0;
    std::int64_t untilEnd = 0;
  };
  Result<Validity> validity() const;
  // Whether it is good for a server of this name or address. An address counts only against the
  // addresses that it has, a name that begins with a full stop against nothing.
  bool isForHost(const std::string& hostName) const;
  // The issuer's name in one line (RFC 2253), control characters and non-ASCII ones escaped.
  std::string issuer() const;
  // Whether its subject issued it and its own key signed it, whatever its extensions say.
  bool isSelfSigned() const;

  x509_st* handle() const { return certificate_.get(); }

 private:
  explicit Certificate(std::shared_ptr<x509_st> certificate)
      : certificate_(std::move(certificate)) {}
  std::shared_ptr<x509_st> certificate_;
};

}  // namespace tessel
