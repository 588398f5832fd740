// tessel-keychain: how an administrator looks into the system keychain, brings an identity in and
// takes one out. Exit status: 0 done, 1 failed with one line on standard error, 2 wrong usage.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/paths.h"
#include "control/configuration.h"
#include "identity/candidates.h"
#include "identity/identity_manager.h"
#include "platform/base/hexadecimal.h"
#include "platform/base/text.h"
#include "platform/files/file_manager.h"
#include "platform/keychain/certificate.h"
#include "platform/keychain/digest.h"
#include "platform/keychain/keychain.h"
#include "platform/keychain/trust.h"
#include "platform/process/console.h"
#include "platform/process/process.h"

namespace {

using namespace tessel;  // NOLINT(google-build-using-namespace): this file is the program

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr size_t kLargestInput = 1UL << 20U;  // bytes of a certificate or key file
constexpr const char* kUsage =
    "Usage: tessel-keychain list\n"
    "       tessel-keychain import CERT KEY [--label LABEL]\n"
    "       tessel-keychain delete ID";

int fail(const std::string& message) {
  printErrorLine("tessel-keychain: " + message);
  return kFailed;
}

const char* nameOf(KeychainItem::Kind kind) {
  switch (kind) {
    case KeychainItem::Kind::Identity:
      return "identity";
    case KeychainItem::Kind::Certificate:
      return "certificate";
    case KeychainItem::Kind::PrivateKey:
      return "private key";
    case KeychainItem::Kind::PublicKey:
      return "public key";
  }
  return "";
}

// The beginning of the certificate's SHA-256, as in the names of the exported files.
std::string fingerprint(const Certificate& certificate) {
  constexpr size_t kShownBytes = 8;
  const auto digest = certificate.digest();
  return digest ? hexadecimal(bytesOf(*digest).substr(0, kShownBytes)) : "-";
}

int list(const Keychain& keychain) {
  const auto items = keychain.items();
  if (!items) return fail(items.error().description);
  if (items->empty()) {
    printLine("The keychain is empty.");
    return kDone;
  }
  const auto row = [](const std::string& id, const std::string& kind, const std::string& expiry,
                      const std::string& digest, const std::string& label) {
    printLine(padded(id, 6) + padded(kind, 13) + padded(expiry, 12) + padded(digest, 18) + label);
  };
  row("ID", "KIND", "EXPIRES", "SHA-256", "LABEL");
  for (const KeychainItem& item : *items) {
    row(std::to_string(item.id), nameOf(item.kind),
        item.certificate ? item.certificate->expiryDay().value_or("") : "-",
        item.certificate ? fingerprint(*item.certificate) : "-", shown(item.label));
    if (item.damage) {
      printErrorLine("tessel-keychain: item " + std::to_string(item.id) +
                     " is damaged: " + *item.damage);
    }
  }
  return kDone;
}

// What an administrator wants to know at once of an identity that he brings in.
struct Advice {
  std::optional<std::string> use;
  std::vector<std::string> warnings;
};

// Why the look-up passes an identity over that has this label; none when it is a candidate.
std::optional<std::string> whyNoCandidate(const Certificate& certificate, const std::string& label,
                                          const std::string& serverName) {
  const auto name = certificate.commonName();
  if (name != serverName) {
    return "its common name is " + (name ? shown(*name) : "missing") +
           ", and has to be the server name";
  }
  if (label == serverName) return std::nullopt;
  return "its label is " + shown(label) +
         ", and has to be the server name; delete it and import it without --label";
}

bool isSame(const Certificate& one, const Certificate& other) {
  const auto digest = one.digest();
  const auto otherDigest = other.digest();
  return digest && otherDigest && *digest == *otherDigest;
}

// Says of an identity that is about to be imported whether tesselctl will use it, and whether its
// chain leads to an authority. Fails when the keychain cannot be read.
Result<Advice> adviceOn(const Keychain& keychain, const std::vector<Certificate>& chain,
                        const PrivateKey& key, const std::string& label) {
  const Certificate& own = chain.front();
  auto others = keychain.certificates();
  if (!others) return others.error();
  others->insert(others->end(), chain.begin(), chain.end());
  Advice advice;
  const auto served = servedChain(own, *others);
  if (served && !served->isComplete) {
    const Certificate& last = served->intermediates.empty() ? own : served->intermediates.back();
    advice.warnings.push_back("the chain ends with the issuer " + last.issuer() +
                              ", which is neither in the keychain nor trusted by this machine; "
                              "clients that do not know it refuse the server, so import the chain");
  }
  const auto configuration = Configuration::load(kSettingsFile);
  if (!configuration) return advice;  // tesselctl says why
  const std::string name = IdentityManager::nameFor(configuration->identityName());
  const std::string unused = "tesselctl does not use it for the server name " + shown(name) + ": ";
  if (const auto why = whyNoCandidate(own, label, name)) {
    advice.warnings.push_back(unused + *why);
    return advice;
  }
  auto found = keychain.identities(name);
  if (!found) return found.error();
  std::vector<Identity>& identities = found->identities;
  const auto present = std::find_if(identities.begin(), identities.end(), [&own](const auto& one) {
    return isSame(one.certificate, own);
  });
  if (present == identities.end()) identities.push_back({own, key});
  const auto preferred = preferredOf(judgeCandidates(identities, name, *others).judged);
  if (preferred && isSame(identities[preferred->index].certificate, own)) {
    advice.use = "tesselctl uses it for the server name " + shown(name);
  } else {
    advice.warnings.push_back(unused +
                              "the keychain has one that is trusted more or was added later");
  }
  return advice;
}

int import(Keychain& keychain, const std::string& certificatePath, const std::string& keyPath,
           const std::optional<std::string>& givenLabel) {
  const FileManager files;
  const auto certificateBytes = files.readFile(certificatePath, kLargestInput);
  if (!certificateBytes) return fail(certificateBytes.error().description);
  const auto chain = Certificate::allFromFile(*certificateBytes);
  if (!chain) return fail(certificatePath + " " + chain.error().description);

  const auto keyBytes = files.readSecretFile(keyPath, kLargestInput);
  if (!keyBytes) return fail(keyBytes.error().description);
  const auto key = PrivateKey::fromFile(keyBytes->view());
  if (!key) return fail(keyPath + " " + key.error().description);

  const auto label = givenLabel ? givenLabel : chain->front().commonName();
  if (!label) return fail(certificatePath + " has no common name; give a label with --label");
  const auto self = callingTrustedProgram();
  if (!self) return fail(self.error().description);
  const auto advice = adviceOn(keychain, *chain, *key, *label);
  if (!advice) return fail(advice.error().description);
  const auto outcome =
      keychain.importIdentity(*chain, *key, *label, {"Access to trusted apps", {*self}});
  if (!outcome) return fail(outcome.error().description);
  printLine((*outcome == ImportOutcome::Imported ? "Imported identity "
                                                 : "Nothing to do; the keychain has identity ") +
            shown(*label));
  if (advice->use) printLine(*advice->use);
  for (const std::string& warning : advice->warnings) {
    printErrorLine("tessel-keychain: warning: " + warning);
  }
  return kDone;
}

int deleteItem(Keychain& keychain, std::int64_t id) {
  if (const Status deleted = keychain.deleteItem(id); !deleted) {
    return fail(deleted.error().description);
  }
  printLine("Deleted item " + std::to_string(id));
  return kDone;
}

std::optional<std::int64_t> parseID(const std::string& text) {
  std::int64_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || id < 1) return std::nullopt;
  return id;
}

}  // namespace

int main(int argc, char** argv) {
  if (!prepareProcess()) return kFailed;
  std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (words.size() == 1 && (words[0] == "-h" || words[0] == "--help")) {
    printLine(kUsage);
    return kDone;
  }

  std::optional<std::string> label;
  if (words.size() == 5 && words[3] == "--label") {
    label = words[4];
    words.resize(3);
  }
  const std::string command = words.empty() ? "" : words[0];
  const auto id = command == "delete" && words.size() == 2 ? parseID(words[1]) : std::nullopt;
  const bool listing = command == "list" && words.size() == 1;
  const bool importing = command == "import" && words.size() == 3;
  if (!listing && !importing && (!id || label)) {
    printErrorLine(kUsage);
    return kWrongUsage;
  }

  if (effectiveUserID() != 0) return fail("must run as root");
  Result<Keychain> keychain = Keychain::open(kSystemKeychainPath);
  if (!keychain) return fail(keychain.error().description);
  if (listing) return list(*keychain);
  if (importing) return import(*keychain, words[1], words[2], label);
  return deleteItem(*keychain, *id);
}
