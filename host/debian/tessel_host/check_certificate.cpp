#include <algorithm>

#include "contract/paths.h"
#include "host/debian/tessel_host/checks.h"
#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/keychain/certificate.h"
#include "platform/keychain/keychain.h"
#include "platform/keychain/trust.h"

namespace tessel {

namespace {

constexpr size_t kLargestCertificateFile = 1'000'000;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kSoon = 30 * kSecondsPerDay;

const char* const kImport =
    "Import the new one with its chain: tessel-keychain import CERT KEY; "
    "then run: tessel-host renew";

// What clients are shown, the server's own first.
std::vector<Certificate> shownCertificates(const Service& service,
                                           const std::optional<HTTPAnswer>& answer) {
  std::string pem;
  if (answer) {
    for (const std::string& certificate : answer->certificates) pem += certificate;
  } else {
    pem = FileManager()
              .readFile(exportedCertificatePath(service.certificateID), kLargestCertificateFile)
              .valueOr("");
  }
  return Certificate::allFromFile(pem).valueOr({});
}

void checkDates(const Certificate& certificate, const std::string& where, Findings& findings) {
  const std::string toDo = certificate.isSelfSigned() ? "Run: tessel-host renew" : kImport;
  const auto validity = certificate.validity();
  const std::string day = certificate.expiryDay().value_or("an unknown day");
  if (!validity) {
    warn(findings, where, "its dates cannot be read", kImport);
  } else if (validity->untilEnd <= 0) {
    warn(findings, where, "it has expired on " + day + ", so clients refuse it", toDo);
  } else if (validity->untilBegin > 0) {
    warn(findings, where, "it is not valid yet, so clients refuse it",
         "Compare the machine's clock (date) with the certificate's first day");
  } else if (validity->untilEnd < kSoon) {
    warn(
        findings, where,
        "it expires in " + std::to_string(validity->untilEnd / kSecondsPerDay) + " days, on " + day,
        toDo);
  }
}

bool isTrusted(const Certificate& certificate, const std::string& name,
               const std::vector<Certificate>& others) {
  const auto policy = ServerPolicy::create(name);
  const auto trust = policy ? Trust::create(certificate, *policy, others) : policy.error();
  return trust && trust->evaluate() == TrustResult::Unspecified;
}

// Asked only of a certificate that is good in itself.
void checkChain(const std::vector<Certificate>& served, const std::string& name,
                const std::string& where, Findings& findings) {
  const Certificate& own = served.front();
  if (own.isSelfSigned() || isTrusted(own, name, {served.begin() + 1, served.end()})) return;
  const auto keychain = Keychain::open(kSystemKeychainPath);
  const auto known = keychain ? keychain->certificates() : keychain.error();
  if (known && isTrusted(own, name, *known)) {
    warn(findings, where,
         "it is served without the intermediate certificate that leads to its authority, so "
         "clients refuse it",
         "Run: tessel-host renew");
    return;
  }
  warn(
      findings, where,
      "no authority that this machine knows vouches for it; it was issued by " + own.issuer() +
          ", whose certificate is missing",
      "Import it with its whole chain: tessel-keychain import FULLCHAIN KEY; then run: tessel-host "
      "renew; if the authority is your own, add it to this machine: update-ca-certificates");
}

}  // namespace

void checkCertificate(const Service& service, const std::optional<HTTPAnswer>& answer,
                      Findings& findings) {
  if (!service.usesTLS) return;
  const FileManager files;
  for (const std::string& path :
       {exportedCertificatePath(service.certificateID), exportedKeyPath(service.certificateID)}) {
    if (!files.fileExistsAtPath(path)) {
      warn(findings, path, "it is missing, so Apache's next start goes without Tessel",
           "Run: tesselctl start");
    }
  }
  const auto served = shownCertificates(service, answer);
  if (served.empty()) return;
  const std::string where =
      "the certificate " + shown(served.front().commonName().value_or("without a name"));
  const size_t before = findings.size();
  checkDates(served.front(), where, findings);
  if (!served.front().isForHost(service.name)) {
    warn(findings, where,
         "it is not for the name " + shown(service.name) + ", so clients that use it refuse",
         "Correct ServerName in " + std::string(kSettingsFile) +
             " or import a certificate for it, then run: tessel-host renew");
  }
  if (answer && findings.size() == before) checkChain(served, service.name, where, findings);
}

}  // namespace tessel
