// A certificate authority of a test's own, run inside its sandbox.
#pragma once

#include <string>

#include "tests/sandbox.h"

// A script that makes, in the folder /pki of the sandbox:
//   root.pem           the authority's certificate
//   middle.pem         an intermediate that it issued
//   NAME.pem NAME.key  for each of its issued certificates, see issue()
inline std::string authorityScript() {
  return R"(
    set -e
    mkdir -p /pki /usr/lib/ssl
    cd /pki
    printf '[req]\ndistinguished_name=dn\n[dn]\n' > /usr/lib/ssl/openssl.cnf
    openssl ecparam -name prime256v1 -genkey -noout -out root.key
    openssl req -x509 -key root.key -subj '/CN=Test Root' -days 30 -out root.pem \
      -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign
    openssl ecparam -name prime256v1 -genkey -noout -out middle.key
    openssl req -new -key middle.key -subj '/CN=Test Middle' -out middle.csr
    printf 'basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n' > middle.ext
    openssl x509 -req -in middle.csr -CA root.pem -CAkey root.key -days 30 -out middle.pem \
      -extfile middle.ext 2>/dev/null
  )";
}

// A script that issues /pki/NAME.pem with /pki/NAME.key for a common name, signed by "root",
// "middle" or itself ("self"). The alternative names are as in "DNS:a,IP:b"; `options` go to
// openssl, for instance "-days 0" for one that has expired.
inline std::string issue(const std::string& name, const std::string& commonName,
                         const std::string& signer, const std::string& alternativeNames,
                         const std::string& options = "-days 30") {
  const std::string request = "openssl req -new -newkey rsa:2048 -nodes -keyout " + name +
                              ".key -subj '/CN=" + commonName + "' -out " + name +
                              ".csr 2>/dev/null\n";
  const std::string extensions = "printf 'subjectAltName=" + alternativeNames +
                                 "\\nextendedKeyUsage=serverAuth\\n' > " + name + ".ext\n";
  const std::string signing = signer == "self" ? "-signkey " + name + ".key"
                                               : "-CA " + signer + ".pem -CAkey " + signer + ".key";
  return "cd /pki\n" + request + extensions + "openssl x509 -req -in " + name + ".csr " + signing +
         " " + options + " -extfile " + name + ".ext -out " + name + ".pem 2>/dev/null\n";
}

// A script that makes the root one of the system's anchors.
inline std::string trustRoot() { return "cp /pki/root.pem /usr/lib/ssl/cert.pem\n"; }
