#include "platform/keychain/certificate.h"

#include <arpa/inet.h>
#include <openssl/asn1.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "platform/keychain/openssl.h"

namespace tessel {

namespace {

using ExtensionPointer = OpenSSLPointer<X509_EXTENSION, X509_EXTENSION_free>;
using NamePointer = OpenSSLPointer<X509_NAME, X509_NAME_free>;

std::shared_ptr<X509> owned(X509* certificate) { return {certificate, X509_free}; }

bool addNameEntry(X509_NAME* name, const char* field, const std::string& value) {
  return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(value.data()),
                                    static_cast<int>(value.size()), -1, 0) == 1;
}

NamePointer subjectOf(const CertificateRequest& request) {
  NamePointer name(X509_NAME_new());
  if (!name || (request.country && !addNameEntry(name.get(), "C", *request.country)) ||
      !addNameEntry(name.get(), "CN", request.commonName)) {
    return nullptr;
  }
  return name;
}

bool addExtension(X509* certificate, int type, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const ExtensionPointer extension(X509V3_EXT_conf_nid(nullptr, &context, type, value));
  return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

// The name goes in as data: in a configuration text, commas and colons would have a meaning.
bool addDNSName(X509* certificate, const std::string& name) {
  const OpenSSLPointer<GENERAL_NAMES, GENERAL_NAMES_free> names(GENERAL_NAMES_new());
  GENERAL_NAME* entry = GENERAL_NAME_new();
  if (!names || entry == nullptr || sk_GENERAL_NAME_push(names.get(), entry) == 0) {
    GENERAL_NAME_free(entry);
    return false;
  }
  ASN1_IA5STRING* text = ASN1_IA5STRING_new();
  if (text == nullptr || ASN1_STRING_set(text, name.data(), static_cast<int>(name.size())) != 1) {
    ASN1_IA5STRING_free(text);
    return false;
  }
  GENERAL_NAME_set0_value(entry, GEN_DNS, text);
  return X509_add1_ext_i2d(certificate, NID_subject_alt_name, names.get(), 0, 0) == 1;
}

template <typename Raw>
std::string bytesOfAddress(const Raw& raw) {
  return {reinterpret_cast<const char*>(&raw), sizeof(raw)};
}

// The bytes of an address in any of the spellings that clients take for one: 127.2 is 127.0.0.2,
// and in URLs IPv6 stands in brackets. None for what is no address.
std::optional<std::string> addressIn(std::string hostName) {
  in_addr four{};
  in6_addr six{};
  if (::inet_aton(hostName.c_str(), &four) != 0) return bytesOfAddress(four);
  if (hostName.starts_with('[') && hostName.ends_with(']')) {
    hostName = hostName.substr(1, hostName.size() - 2);
  }
  if (::inet_pton(AF_INET6, hostName.c_str(), &six) == 1) return bytesOfAddress(six);
  return std::nullopt;
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

Certificate Certificate::of(X509* certificate) {
  X509_up_ref(certificate);
  return Certificate(owned(certificate));
}

Result<Certificate> Certificate::fromDER(std::string_view der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  auto certificate = owned(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  if (!certificate) return opensslError();
  return Certificate(std::move(certificate));
}

Result<std::vector<Certificate>> Certificate::allFromFile(std::string_view bytes) {
  std::vector<Certificate> certificates;
  const BIOPointer pem = memoryBIO(bytes);
  while (X509* next = pem ? PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr) : nullptr) {
    certificates.push_back(Certificate(owned(next)));
  }
  const unsigned long ended = ERR_peek_last_error();
  ERR_clear_error();
  if (certificates.empty()) {
    Result<Certificate> single = fromDER(bytes);
    if (!single) return Error{"holds no certificate in PEM or DER form"};
    certificates.push_back(std::move(*single));
  } else if (ERR_GET_REASON(ended) != PEM_R_NO_START_LINE) {
    return Error{"holds a broken certificate after the first"};
  }
  return certificates;
}

Result<Certificate> Certificate::createSelfSigned(const CertificateRequest& request,
                                                  const PrivateKey& key) {
  // A DNS name in a certificate is an IA5String (RFC 5280, section 4.2.1.6).
  if (!isASCII(request.commonName)) return Error{"a DNS name holds ASCII characters only"};
  auto certificate = owned(X509_new());
  const NamePointer subject = subjectOf(request);
  if (!certificate || !subject) {
    return Error{"the name cannot be put into a certificate: " + opensslError().description};
  }

  constexpr long kVersion3 = 2;
  X509* raw = certificate.get();
  const bool filled =
      X509_set_version(raw, kVersion3) == 1 &&
      ASN1_INTEGER_set_uint64(X509_get_serialNumber(raw), request.serialNumber) == 1 &&
      X509_set_subject_name(raw, subject.get()) == 1 &&
      X509_set_issuer_name(raw, subject.get()) == 1 &&
      X509_gmtime_adj(X509_getm_notBefore(raw), 0) != nullptr &&
      X509_time_adj_ex(X509_getm_notAfter(raw), request.validityDays, 0, nullptr) != nullptr &&
      X509_set_pubkey(raw, key.handle()) == 1;
  // Basic constraints and the subject key identifier have the criticality and presence that
  // RFC 5280 demands of a CA certificate, which this one is by its flag: strict verifiers refuse
  // anything else.
  const bool extended =
      filled && addExtension(raw, NID_basic_constraints, "critical,CA:TRUE") &&
      addExtension(raw, NID_key_usage,
                   "critical,digitalSignature,keyEncipherment,dataEncipherment,keyCertSign") &&
      addExtension(raw, NID_ext_key_usage, "serverAuth") && addDNSName(raw, request.commonName) &&
      addExtension(raw, NID_subject_key_identifier, "hash");
  if (!extended || X509_sign(raw, key.handle(), EVP_sha256()) == 0) return opensslError();
  return Certificate(std::move(certificate));
}

Result<std::string> Certificate::der() const { return encoded(certificate_.get(), i2d_X509); }

Result<std::string> Certificate::pem() const {
  const BIOPointer pem(BIO_new(BIO_s_mem()));
  if (!pem || PEM_write_bio_X509(pem.get(), certificate_.get()) != 1) return opensslError();
  return contentOf(pem.get());
}

Result<SHA256Digest> Certificate::digest() const {
  const auto bytes = der();
  if (!bytes) return bytes.error();
  return sha256(*bytes);
}

Result<SHA256Digest> Certificate::publicKeyDigest() const {
  const auto bytes = encoded(X509_get_X509_PUBKEY(certificate_.get()), i2d_X509_PUBKEY);
  if (!bytes) return bytes.error();
  return sha256(*bytes);
}

std::optional<std::string> Certificate::commonName() const {
  const X509_NAME* subject = X509_get_subject_name(certificate_.get());
  int last = -1;
  for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, NID_commonName, i)) >= 0;) last = i;
  if (last < 0) return std::nullopt;
  unsigned char* text = nullptr;
  const int length =
      ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, last)));
  if (length < 0) {
    ERR_clear_error();
    return std::nullopt;
  }
  std::string name(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
  OPENSSL_free(text);
  return name;
}

std::optional<std::string> Certificate::expiryDay() const {
  std::tm time{};
  std::array<char, sizeof "YYYY-MM-DD"> text{};
  if (ASN1_TIME_to_tm(X509_get0_notAfter(certificate_.get()), &time) != 1 ||
      std::strftime(text.data(), text.size(), "%Y-%m-%d", &time) == 0) {
    return std::nullopt;
  }
  return text.data();
}

Result<Certificate::Validity> Certificate::validity() const {
  constexpr std::int64_t kSecondsPerDay = 86400;
  const auto secondsUntil = [](const ASN1_TIME* time) -> std::optional<std::int64_t> {
    int days = 0;
    int seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, nullptr, time) != 1) return std::nullopt;
    return days * kSecondsPerDay + seconds;
  };
  const auto begin = secondsUntil(X509_get0_notBefore(certificate_.get()));
  const auto end = secondsUntil(X509_get0_notAfter(certificate_.get()));
  if (!begin || !end) return opensslError();
  return Validity{*begin, *end};
}

bool Certificate::isForHost(const std::string& hostName) const {
  X509* const raw = certificate_.get();
  const auto address = addressIn(hostName);
  // To OpenSSL a name that begins with a full stop stands for every name below it.
  const bool named =
      address ? X509_check_ip(raw, reinterpret_cast<const unsigned char*>(address->data()),
                              address->size(), 0) == 1
              : !hostName.starts_with('.') &&
                    X509_check_host(raw, hostName.data(), hostName.size(), 0, nullptr) == 1;
  ERR_clear_error();
  return named;
}

std::string Certificate::issuer() const {
  const BIOPointer text(BIO_new(BIO_s_mem()));
  if (!text || X509_NAME_print_ex(text.get(), X509_get_issuer_name(certificate_.get()), 0,
                                  XN_FLAG_RFC2253) < 0) {
    ERR_clear_error();
    return "";
  }
  return contentOf(text.get());
}

bool Certificate::isSelfSigned() const {
  X509* const raw = certificate_.get();
  EVP_PKEY* const key = X509_get0_pubkey(raw);
  const bool itIs = X509_NAME_cmp(X509_get_subject_name(raw), X509_get_issuer_name(raw)) == 0 &&
                    key != nullptr && X509_verify(raw, key) == 1;
  ERR_clear_error();
  return itIs;
}

}  // namespace tessel
