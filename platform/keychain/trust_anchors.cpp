#include "platform/keychain/trust_anchors.h"

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/keychain/openssl.h"

namespace tessel {

namespace {

using CertificatePointer = OpenSSLPointer<X509, X509_free>;
using NamePointer = OpenSSLPointer<X509_NAME, X509_NAME_free>;

struct EncodedCertificate {
  std::string der;
  bool hasTrustSettings;  // OpenSSL's own, after the certificate
  NamePointer subject;    // null when it cannot be found
};

// The subject of a certificate and nothing else of it (RFC 5280, section 4.1).
NamePointer subjectOf(const std::string& der) {
  constexpr int kSequencesAround = 2;
  constexpr int kFieldsBefore = 4;  // serial number, algorithm, issuer and validity
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  const unsigned char* const end = at + der.size();
  long length = 0;
  int tag = 0;
  int tagClass = 0;
  const auto enter = [&] {
    return (static_cast<unsigned>(ASN1_get_object(&at, &length, &tag, &tagClass, end - at)) &
            0x80U) == 0;
  };
  for (int i = 0; i < kSequencesAround; ++i) {
    if (!enter()) return nullptr;
  }
  const unsigned char* first = at;
  if (!enter()) return nullptr;
  at = tagClass == V_ASN1_CONTEXT_SPECIFIC ? at + length : first;
  for (int i = 0; i < kFieldsBefore; ++i) {
    if (!enter()) return nullptr;
    at += length;
  }
  return NamePointer(d2i_X509_NAME(nullptr, &at, end - at));
}

std::vector<EncodedCertificate> readFile(const char* path) {
  std::vector<EncodedCertificate> found;
  const BIOPointer file(BIO_new_file(path, "r"));
  char* kind = nullptr;
  char* header = nullptr;
  unsigned char* bytes = nullptr;
  long length = 0;
  while (file && PEM_read_bio(file.get(), &kind, &header, &bytes, &length) == 1) {
    const std::string_view name = kind;
    const bool hasTrustSettings = name == PEM_STRING_X509_TRUSTED;
    if (hasTrustSettings || name == PEM_STRING_X509 || name == PEM_STRING_X509_OLD) {
      std::string der(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length));
      NamePointer subject = subjectOf(der);
      found.push_back({std::move(der), hasTrustSettings, std::move(subject)});
    }
    OPENSSL_free(kind);
    OPENSSL_free(header);
    OPENSSL_free(bytes);
  }
  return found;
}

CertificatePointer decode(const EncodedCertificate& certificate) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(certificate.der.data());
  const auto length = static_cast<long>(certificate.der.size());
  return CertificatePointer(certificate.hasTrustSettings ? d2i_X509_AUX(nullptr, &bytes, length)
                                                         : d2i_X509(nullptr, &bytes, length));
}

}  // namespace

void addAnchorFolder(X509_STORE* store) {
  (void)X509_STORE_load_path(store, X509_get_default_cert_dir());
  ERR_clear_error();
}

void addAnchorsFromFile(X509_STORE* store, const std::vector<const X509*>& certificates) {
  // A chain is built by names. One that has met an authority may go on to that one's issuer.
  std::vector<const X509_NAME*> names;
  for (const X509* certificate : certificates) {
    names.push_back(X509_get_subject_name(certificate));
    names.push_back(X509_get_issuer_name(certificate));
  }
  std::vector<EncodedCertificate> candidates = readFile(X509_get_default_cert_file());
  std::vector<CertificatePointer> added;  // the names are theirs
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto rest = std::partition(
        candidates.begin(), candidates.end(), [&](const EncodedCertificate& candidate) {
          return candidate.subject && X509_NAME_cmp(candidate.subject.get(), names[i]) != 0;
        });
    for (auto met = rest; met != candidates.end(); ++met) {
      CertificatePointer authority = decode(*met);
      if (!authority || X509_STORE_add_cert(store, authority.get()) != 1) continue;
      names.push_back(X509_get_issuer_name(authority.get()));
      added.push_back(std::move(authority));
    }
    candidates.erase(rest, candidates.end());
  }
  ERR_clear_error();
}

}  // namespace tessel
