// tessel-keychain: identities in and out of the system keychain.
#include <array>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "tests/authority.h"
#include "tests/sandbox.h"

namespace {

const std::string kKeychain = "/Library/Keychains/System.keychain";
const std::string kHeader = "ID    KIND         EXPIRES     SHA-256           LABEL\n";

// The KIND and LABEL columns of the list, "ID KIND LABEL" a line.
std::string listed(const Sandbox& host) {
  std::string rows = host.keychain({"list"}).output;
  if (!rows.starts_with(kHeader)) return rows;
  rows.erase(0, kHeader.size());
  std::string summary;
  while (!rows.empty()) {
    const std::string row = rows.substr(0, rows.find('\n'));
    rows.erase(0, row.size() + 1);
    std::string kind = row.substr(6, 11);
    kind.erase(kind.find_last_not_of(' ') + 1);
    summary += row.substr(0, row.find(' ')) + " " + kind + " " + row.substr(49) + "\n";
  }
  return summary;
}

void expectFailure(const Outcome& outcome, const std::string& part) {
  EXPECT_EQ(outcome.status, 1) << outcome.output;
  EXPECT_EQ(outcome.output, "");
  EXPECT_TRUE(outcome.errors.starts_with("tessel-keychain: ")) << outcome.errors;
  EXPECT_PRED2(contains, outcome.errors, part);
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
}

class KeychainTool : public testing::Test {
 protected:
  void SetUp() override {
    const Outcome made =
        host.shell(authorityScript() + issue("a", "a.example", "root", "DNS:a.example") +
                   issue("b", "b.example", "middle", "DNS:b.example"));
    ASSERT_EQ(made.status, 0) << made.errors;
  }

  Sandbox host;
};

TEST_F(KeychainTool, ImportsListsAndDeletes) {
  EXPECT_EQ(host.keychain({"list"}).output, "The keychain is empty.\n");
  EXPECT_FALSE(host.exists(kKeychain));
  host.write(kKeychain, "", 0644);  // as empty as none, and closed when it is used
  EXPECT_EQ(host.keychain({"list"}).output, "The keychain is empty.\n");

  const Outcome first = host.shell("umask 0; tessel-keychain import /pki/a.pem /pki/a.key");
  EXPECT_EQ(first.status, 0) << first.errors;
  EXPECT_EQ(first.output, "Imported identity a.example\n");
  EXPECT_EQ(host.mode(kKeychain), 0600U);
  const std::string before = host.read(kKeychain);
  EXPECT_EQ(host.keychain({"import", "/pki/a.pem", "/pki/a.key"}).output,
            "Nothing to do; the keychain has identity a.example\n");
  EXPECT_EQ(host.read(kKeychain), before);
  expectFailure(host.keychain({"import", "/pki/a.pem", "/pki/a.key", "--label", "other"}),
                "labelled \"a.example\"");

  host.shell("cat /pki/b.pem /pki/middle.pem > /pki/chain.pem");
  EXPECT_EQ(
      host.keychain({"import", "/pki/chain.pem", "/pki/b.key", "--label", "x\n\\\x7F"}).output,
      "Imported identity x\\x0A\\x5C\\x7F\n");
  EXPECT_EQ(listed(host),
            "2 identity a.example\n4 identity x\\x0A\\x5C\\x7F\n5 certificate Test Middle\n");

  EXPECT_EQ(host.keychain({"delete", "2"}).output, "Deleted item 2\n");
  EXPECT_EQ(listed(host), "4 identity x\\x0A\\x5C\\x7F\n5 certificate Test Middle\n");
  expectFailure(host.keychain({"delete", "2"}), "no item 2");
  expectFailure(host.keychain({"delete", "3"}), "private key of an identity");
  EXPECT_EQ(host.keychain({"import", "/pki/a.pem", "/pki/a.key"}).status, 0);
  EXPECT_EQ(listed(host),
            "4 identity x\\x0A\\x5C\\x7F\n5 certificate Test Middle\n7 identity a.example\n");

  // A renewed certificate has the key of the one before, which stays when that one is deleted.
  constexpr std::time_t kThirdOfFebruary2031 = 1927843200;
  constexpr std::time_t kDay = 86400;
  const std::string days = std::to_string(kThirdOfFebruary2031 / kDay - std::time(nullptr) / kDay);
  EXPECT_EQ(
      host.shell("cd /pki; openssl x509 -req -in a.csr -CA root.pem -CAkey root.key -days " + days +
                 " -out renewed.pem 2> /dev/null;" + "tessel-keychain import renewed.pem a.key")
          .output,
      "Imported identity a.example\n");
  EXPECT_PRED2(contains, host.keychain({"list"}).output, "8     identity     2031-02-03  ");
  EXPECT_EQ(host.keychain({"delete", "7"}).output, "Deleted item 7\n");
  EXPECT_EQ(listed(host),
            "4 identity x\\x0A\\x5C\\x7F\n5 certificate Test Middle\n8 identity a.example\n");
}

TEST_F(KeychainTool, ReadsEveryUnencryptedForm) {
  for (const char* conversion :
       {"openssl rsa -traditional -in a.key -out key 2>/dev/null; cp a.pem cert",
        "openssl pkcs8 -topk8 -nocrypt -in a.key -outform DER -out key; cp a.pem cert",
        "openssl rsa -traditional -in a.key -outform DER -out key 2>/dev/null; "
        "openssl x509 -in a.pem -outform DER -out cert",
        "{ echo comment; openssl ecparam -name prime256v1; cat root.pem root.key; } > key;"
        "openssl x509 -text -in root.pem > cert",
        "cat a.key a.pem middle.pem > cert; cat a.pem a.key > key"}) {
    host.remove(kKeychain);
    const Outcome outcome =
        host.shell(std::string("cd /pki; ") + conversion + " && tessel-keychain import cert key");
    EXPECT_EQ(outcome.status, 0) << conversion << outcome.errors;
  }
}

TEST_F(KeychainTool, RefusesWhatIsNoIdentityAndStoresNothing) {
  ASSERT_EQ(host.shell(R"(cd /pki
    openssl rsa -traditional -aes128 -passout pass:x -in a.key -out traditional.key 2>/dev/null
    openssl pkcs8 -topk8 -passout pass:x -in a.key -out pkcs8.key
    openssl pkcs8 -topk8 -passout pass:x -in a.key -outform DER -out der.key
    openssl pkey -in a.key -pubout -out public.key
    openssl genpkey -algorithm ed25519 -out ed.key
    { cat a.pem; openssl genpkey -algorithm rsa-pss; } > pss.key 2>/dev/null
    openssl ecparam -name prime256v1 -genkey -noout -outform DER -out bent.key
    printf 'damaged' | dd of=bent.key bs=1 seek=10 conv=notrunc 2>/dev/null
    { cat a.pem; sed 's/M/!/' b.pem; } > half.pem
    head -c 400 a.pem > cut.pem
    dd if=/dev/zero of=zeros bs=1000000 count=2 2>/dev/null
    mkdir folder
    printf '[req]\ndistinguished_name=dn\n[dn]\n' > /usr/lib/ssl/openssl.cnf
    openssl req -x509 -key a.key -subj '/O=No common name' -out nameless.pem
  )")
                .status,
            0);
  const std::vector<std::array<std::string, 3>> cases{
      {"a.pem", "b.key", "does not belong"},       {"a.pem", "traditional.key", "is encrypted"},
      {"a.pem", "pkcs8.key", "is encrypted"},      {"a.pem", "der.key", "is encrypted"},
      {"a.pem", "public.key", "no private key"},   {"a.pem", "a.pem", "no private key"},
      {"a.key", "a.key", "no certificate"},        {"cut.pem", "a.key", "no certificate"},
      {"half.pem", "a.key", "broken certificate"}, {"zeros", "a.key", "larger than"},
      {"folder", "a.key", "not a regular file"},   {"missing", "a.key", "No such file"},
      {"a.pem", "missing", "No such file"},        {"nameless.pem", "a.key", "no common name"},
      {"a.pem", "ed.key", "no encrypted form"},    {"a.pem", "pss.key", "no encrypted form"},
      {"a.pem", "bent.key", "does not fit"},
  };
  for (const auto& [certificate, key, message] : cases) {
    SCOPED_TRACE(certificate + " " + key);
    expectFailure(host.keychain({"import", "/pki/" + certificate, "/pki/" + key}), message);
  }
  EXPECT_EQ(host.keychain({"list"}).output, "The keychain is empty.\n");
}

TEST_F(KeychainTool, SaysWhyAKeychainCannotBeOpened) {
  const std::vector<std::pair<const char*, const char*>> cases{
      {"echo noise, long enough to be taken for a header > $K", "not a database"},
      {"sqlite3 $K 'CREATE TABLE t (a)'", "is no keychain"},
      {"cp /tmp/good $K; sqlite3 $K 'PRAGMA user_version = 2'", "another version"},
      {"head -c 5000 /tmp/good > $K", "malformed"},
      {"mkdir $K", "not a regular file"},
      {"ln -s /nowhere $K", "link to a missing file"},
      {"rm -r /Library/Keychains", "folder /Library/Keychains is missing"},
  };
  ASSERT_EQ(
      host.shell("tessel-keychain import /pki/a.pem /pki/a.key; cp " + kKeychain + " /tmp/good")
          .status,
      0);
  for (const auto& [damage, message] : cases) {
    SCOPED_TRACE(damage);
    host.remove(kKeychain);
    ASSERT_EQ(host.shell("K=" + kKeychain + "; " + damage).status, 0);
    expectFailure(host.keychain({"list"}), message);
    expectFailure(host.keychain({"import", "/pki/a.pem", "/pki/a.key"}), message);
  }
}

TEST_F(KeychainTool, SaysWhatIsDamaged) {
  ASSERT_EQ(
      host.shell("tessel-keychain import /pki/a.pem /pki/a.key; cp " + kKeychain + " /tmp/good")
          .status,
      0);
  host.configure("<key>ServerSSL</key><true/><key>ServerName</key><string>a.example</string>");
  const std::vector<std::array<const char*, 3>> cases{
      // What is changed, and the damaged item.
      {"der = substr(der, 1, 100)", "certificate", "item 2"},
      {"der = substr(der, 1, 100)", "private key", "item 1"},
      // The private exponent, and a prime that makes up for it.
      {"der = CAST(substr(der, 1, 400) || 'damaged!' || substr(der, 409, 192) || 'damaged!' || "
       "substr(der, 609) AS BLOB)",
       "private key", "item 1"},
      {"public_key_digest = 'x'", "certificate", "item 2"},
      {"public_key_digest = 'x'", "private key", "item 1"},
  };
  for (const auto& [change, itemClass, item] : cases) {
    SCOPED_TRACE(std::string(change) + itemClass);
    ASSERT_EQ(host.shell("cp /tmp/good " + kKeychain + "; HOME=/ sqlite3 " + kKeychain +
                         " \"UPDATE item SET " + change + " WHERE class = '" + itemClass + "'\"")
                  .status,
              0);
    EXPECT_PRED2(contains, host.keychain({"list"}).errors, std::string(item) + " is damaged: ");
    EXPECT_PRED2(contains, host.tesselctl({"start"}).errors,
                 "The keychain is damaged, " + std::string(item) + ": ");
    host.setEnvironment("");
  }
  // An index that does not lead to what is there.
  ASSERT_EQ(host.shell("K=" + kKeychain + R"sh(; cp /tmp/good $K; export HOME=/
    name="name = 'item_by_public_key'"
    root=$(sqlite3 $K "SELECT rootpage FROM sqlite_schema WHERE $name")
    sql=$(sqlite3 $K "SELECT sql FROM sqlite_schema WHERE $name")
    free='.dbconfig defensive off'
    sqlite3 $K "$free" "PRAGMA writable_schema = ON; DELETE FROM sqlite_schema WHERE $name"
    sqlite3 $K "UPDATE item SET public_key_digest = 'x'"
    sqlite3 $K "$free" "PRAGMA writable_schema = ON;
      INSERT INTO sqlite_schema VALUES ('index', 'item_by_public_key', 'item', $root, '$sql')")sh")
                .status,
            0);
  expectFailure(host.keychain({"list"}), "is damaged");
}

TEST_F(KeychainTool, WaitsForAnotherWriter) {
  ASSERT_EQ(host.keychain({"import", "/pki/a.pem", "/pki/a.key"}).status, 0);
  const Outcome outcome = host.shell(
      "{ echo 'BEGIN EXCLUSIVE;'; touch /tmp/locked; sleep 1; echo 'COMMIT;'; } | sqlite3 " +
      kKeychain +
      " & while [ ! -e /tmp/locked ]; do sleep 0.05; done; sleep 0.2;"
      "tessel-keychain list > /tmp/list & tessel-keychain import /pki/b.pem /pki/b.key && wait");
  EXPECT_EQ(outcome.output, "Imported identity b.example\n") << outcome.errors;
  EXPECT_TRUE(host.read("/tmp/list").starts_with(kHeader)) << host.read("/tmp/list");
}

TEST(KeychainToolUsage, IsTwoForWrongWordsAndNeedsRoot) {
  Sandbox host;
  for (const char* words : {"", "lists", "list x", "import a", "delete", "delete 0", "delete 1x",
                            "import a b --label", "delete 1 2 --label x"}) {
    const Outcome outcome = host.shell(std::string("tessel-keychain ") + words);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(outcome.errors.starts_with("Usage: tessel-keychain list\n")) << outcome.errors;
  }
  host.user = 1000;
  expectFailure(host.keychain({"list"}), "must run as root");
}

}  // namespace
