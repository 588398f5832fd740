#include "host/debian/tessel_host/renew.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>
#include <thread>

#include "contract/apache_environment.h"
#include "contract/paths.h"
#include "host/debian/httpd_wrapper/exported_identity.h"
#include "host/debian/httpd_wrapper/failure.h"
#include "host/debian/httpd_wrapper/identity.h"
#include "host/debian/tessel_host/renewal_choice.h"
#include "host/debian/tessel_host/service.h"
#include "identity/certificate_id.h"
#include "identity/identity_creation.h"
#include "identity/identity_manager.h"
#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/files/lock.h"
#include "platform/files/path.h"
#include "platform/keychain/trust.h"
#include "platform/process/console.h"
#include "platform/process/program.h"

namespace tessel {

namespace {

using namespace std::chrono_literals;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr size_t kLargestExportedFile = 1'000'000;
constexpr auto kLongestReload = 30s;
constexpr auto kBetweenLooks = 200ms;

void complain(const std::string& message) { printErrorLine("tessel-host: " + message); }

int fail(const std::string& message) {
  complain(message);
  return kFailed;
}

// The identity to serve with, made if need be.
Result<RenewalChoice> chooseOrMake(const std::string& name) {
  const auto choose = [&name]() -> Result<RenewalChoice> {
    const auto keychain = Keychain::open(kSystemKeychainPath);
    return keychain ? chooseForRenewal(*keychain, name) : keychain.error();
  };
  auto choice = choose();
  if (!choice) return choice;
  for (const std::string& damage : choice->damage) complain("the keychain is damaged, " + damage);
  if (!choice->needsNewOne()) return choice;
  if (!makeSelfSignedIdentity(name, {"/usr/sbin/httpd"})) {
    return Error{"no identity can be made for " + shown(name)};
  }
  printLine("Made a self-signed identity for " + shown(name));
  choice = choose();
  if (choice && !choice->best) return Error{"the identity that was made is not usable"};
  return choice;
}

// What clients are shown when all is done.
Result<std::vector<Certificate>> wantedCertificates(const Certificate& certificate) {
  const auto keychain = Keychain::open(kSystemKeychainPath);
  const auto others = keychain ? keychain->certificates() : keychain.error();
  auto chain = others ? servedChain(certificate, *others) : others.error();
  if (!chain) return chain.error();
  std::vector<Certificate> wanted{certificate};
  wanted.insert(wanted.end(), chain->intermediates.begin(), chain->intermediates.end());
  return wanted;
}

bool isServed(const Service& service, const std::vector<Certificate>& wanted) {
  const auto answer = askService(service);
  if (!answer || answer->certificates.size() != wanted.size()) return false;
  for (size_t i = 0; i < wanted.size(); ++i) {
    const auto served = Certificate::allFromFile(answer->certificates[i]);
    const auto digest = served ? served->front().digest() : served.error();
    const auto expected = wanted[i].digest();
    if (!digest || !expected || *digest != *expected) return false;
  }
  return true;
}

bool reload() {
  const auto status =
      runProgram("/bin/launchctl", {"kill", "USR1", "system/org.apache.httpd"}, Streams::Inherited);
  return status && *status == 0;
}

bool waitUntilServed(const Service& service, const std::vector<Certificate>& wanted) {
  const auto end = std::chrono::steady_clock::now() + kLongestReload;
  while (!isServed(service, wanted)) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kBetweenLooks);
  }
  return true;
}

// Others write the list as well, so it is read when it is changed.
Status noteInEnvironment(const std::string& id) {
  auto environment = PropertyList::load(kApacheEnvironmentFile);
  if (!environment) return environment.error();
  environment->setString(environment::kCertID, id);
  const auto xml = environment->xml();
  if (!xml) return xml.error();
  return FileManager().writeAtomically(kApacheEnvironmentFile, *xml,
                                       FileManager::Attributes::KeepExisting);
}

Status exportUnlessItFits(const std::string& id, const Identity& identity) {
  const auto lock = lockExports();
  if (!lock) return lock.error();
  const auto file = FileManager().readFile(exportedCertificatePath(id), kLargestExportedFile);
  const auto pem = identity.certificate.pem();
  if (file && pem && *file == *pem && exportedFits(id)) return {};
  return exportUnderPresentPassPhrase(id, identity);
}

// From the one that is served now to the one of this ID; back again when that does not work.
Status switchTo(const std::string& id, const Service& service,
                const std::vector<Certificate>& wanted) {
  if (Status noted = noteInEnvironment(id); !noted) return noted;
  const bool isReloaded = reload();
  if (isReloaded && waitUntilServed(service, wanted)) return {};
  const Error failure{
      "Apache does not serve with the new identity, so the old one stays; see "
      "/var/log/apache2/error.log and: tessel-host check"};
  if (service.certificateID.empty() || service.certificateID == id) return failure;
  if (Status noted = noteInEnvironment(service.certificateID); !noted) return noted;
  if (Status told = tellIdentity(service.certificateID); !told) return told;
  if (isReloaded) (void)reload();
  return failure;
}

// Whether a file is one that is exported for the name, under whatever ID.
bool isExportedFor(const std::string& name, std::string_view file) {
  constexpr size_t kDigits = 64;
  for (const std::string_view ending : {".key.pem", ".cert.pem"}) {
    if (!file.starts_with(name + ".") || !file.ends_with(ending)) continue;
    if (file.size() != name.size() + 1 + kDigits + ending.size()) continue;
    const auto digits = file.substr(name.size() + 1, kDigits);
    return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
  }
  return false;
}

// What was exported for the name, and is not what is served, is of no use any more.
Status removeOtherExports(const std::string& name, const std::string& id,
                          const std::string& previousID) {
  const FileManager files;
  const auto lock = lockExports();
  if (!lock) return lock.error();
  const auto names = files.contentsOfDirectory(kTesselFolder);
  if (!names) return names.error();
  for (const std::string& file : *names) {
    const std::string path = appendPathComponent(kTesselFolder, file);
    if (path == exportedKeyPath(id) || path == exportedCertificatePath(id)) continue;
    const bool isPrevious = !previousID.empty() && (path == exportedKeyPath(previousID) ||
                                                    path == exportedCertificatePath(previousID));
    if (!isPrevious && !isExportedFor(name, file)) continue;
    if (Status removed = files.removeItem(path); !removed) return removed;
  }
  return {};
}

// The item of the certificate, none when it has gone, and the last certificate's.
struct Items {
  std::optional<std::int64_t> wanted;
  std::int64_t last = 0;
};

Result<Items> itemsFor(const Keychain& keychain, const Certificate& certificate) {
  const auto wanted = certificate.digest();
  if (!wanted) return wanted.error();
  const auto all = keychain.items();
  if (!all) return all.error();
  Items items;
  for (const KeychainItem& item : *all) {
    const bool isCertificate =
        item.kind == KeychainItem::Kind::Identity || item.kind == KeychainItem::Kind::Certificate;
    if (isCertificate) items.last = item.id;
    const auto digest = item.certificate ? item.certificate->digest() : Error{""};
    if (digest && *digest == *wanted) items.wanted = item.id;
  }
  return items;
}

// Takes away what the served identity supersedes, and puts it last where something of the same
// label stays: tesselctl then finds, and exports, what is served. An identity that is better than
// the served one has come meanwhile; whoever brought it has it served.
Status tidyKeychain(const std::string& name, const std::string& id) {
  auto keychain = Keychain::open(kSystemKeychainPath);
  if (!keychain) return keychain.error();
  auto choice = chooseForRenewal(*keychain, name);
  if (!choice) return choice.error();
  const auto isBest = [&] {
    return choice->best && CertIDForIdentity(choice->chosen().identity) == id;
  };
  if (!isBest()) return {};
  for (size_t i = 0; i < choice->candidates.size(); ++i) {
    const RenewalCandidate& candidate = choice->candidates[i];
    if (i == *choice->best || !choice->isSuperseded(candidate)) continue;
    const auto items = itemsFor(*keychain, candidate.identity.certificate);
    if (!items) return items.error();
    if (!items->wanted) continue;
    if (Status deleted = keychain->deleteItem(*items->wanted); !deleted) return deleted;
    printLine("Removed item " + std::to_string(*items->wanted) +
              " from the keychain, which is superseded");
  }
  const auto items = itemsFor(*keychain, choice->chosen().identity.certificate);
  if (!items) return items.error();
  choice = chooseForRenewal(*keychain, name);
  if (!choice) return choice.error();
  if (!isBest() || choice->bestIsLast || !items->wanted) return {};
  return keychain->addAgain(*items->wanted, items->last);
}

int renewIdentity(const Service& service) {
  const std::string name = IdentityManager::nameFor(service.configuration.identityName());
  const auto choice = chooseOrMake(name);
  if (!choice) return fail(choice.error().description);
  const RenewalCandidate& chosen = choice->chosen();
  const auto id = CertIDForIdentity(chosen.identity);
  const auto wanted = wantedCertificates(chosen.identity.certificate);
  if (!id || !wanted) return fail("the certificate cannot be read");

  const bool isThere = *id == service.certificateID && isServed(service, *wanted);
  if (Status exported = exportUnlessItFits(*id, chosen.identity); !exported) {
    return fail("the identity cannot be exported: " + exported.error().description);
  }
  const std::string day = chosen.identity.certificate.expiryDay().value_or("an unknown day");
  if (!isThere) {
    if (Status served = switchTo(*id, service, *wanted); !served) {
      return fail(served.error().description);
    }
    printLine("Serving with the identity " + shown(name) + ", valid until " + day);
  }
  if (Status removed = removeOtherExports(name, *id, service.certificateID); !removed) {
    return fail(removed.error().description);
  }
  if (Status tidied = tidyKeychain(name, *id); !tidied) return fail(tidied.error().description);
  if (chosen.standing == Standing::ExpiredIssued) {
    return fail(
        "the certificate of " + shown(name) + " has expired on " + day +
        "; import a newer one: tessel-keychain import CERT KEY; then run: tessel-host renew");
  }
  if (isThere) printLine("Nothing to do; " + shown(name) + " is served until " + day);
  return kDone;
}

}  // namespace

int renew() {
  const auto tell = [](const std::string& holder) { complain("waiting for " + holder); };
  const auto turn = lockFolder(kTesselStateFolder, {30s, 1s, tell});
  if (!turn) return fail(turn.error().description);
  if (!*turn) return fail("another start, stop or renew does not end");
  if (!isTesselOn()) {
    printLine("Nothing to do; Tessel is off");
    return kDone;
  }
  const Service service = readService();
  if (!service.settings) return fail(service.settings.error().description);
  if (!service.environment) return fail(service.environment.error().description);
  if (!service.usesTLS) {
    printLine("Nothing to do; TLS is off");
    return kDone;
  }
  if (!isApacheRunning()) return fail("Apache is not running; run: tesselctl start");
  if (FileManager().fileExistsAtPath(kReasonFile)) {
    return fail(std::string("Apache runs without Tessel, for the reason in ") + kReasonFile +
                "; run: tesselctl start");
  }
  return renewIdentity(service);
}

}  // namespace tessel
