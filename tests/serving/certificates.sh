# shellcheck shell=bash disable=SC2154,SC2164
# A certificate authority of a check's own, in /tmp/pki. Sourced after machine.sh.
mkdir /tmp/pki

new_key() { openssl ecparam -name prime256v1 -genkey -noout -out "/tmp/pki/$1.key"; }
signer() { # NAME ISSUER: the arguments by which openssl signs
  if [ "$1" = "$2" ]; then echo -signkey "$1.key"; else echo -CA "$2.pem" -CAkey "$2.key"; fi
}
# The root is its own issuer.
authority() { # NAME ISSUER
  new_key "$1"
  (
    cd /tmp/pki
    printf 'basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n' >authority.ext
    openssl req -new -key "$1.key" -subj "/CN=Test $1" -out "$1.csr"
    # shellcheck disable=SC2046
    openssl x509 -req -in "$1.csr" $(signer "$1" "$2") -days 90 -extfile authority.ext \
      -out "$1.pem" 2>/dev/null
  )
}
# leaf.pem and leaf.key for the host, or a common name, and an alternative name, by an authority or
# itself.
issued() { # ISSUER|leaf DAYS NAME [COMMON-NAME]
  new_key leaf
  (
    cd /tmp/pki
    printf 'subjectAltName=DNS:%s\nextendedKeyUsage=serverAuth\n' "$3" >leaf.ext
    openssl req -new -key leaf.key -subj "/CN=${4-$host}" -out leaf.csr
    # shellcheck disable=SC2046
    openssl x509 -req -in leaf.csr $(signer leaf "$1") -days "$2" -extfile leaf.ext \
      -out leaf.pem 2>/dev/null
  )
}
trust_root() {
  cp /tmp/pki/root.pem /usr/local/share/ca-certificates/test.crt
  update-ca-certificates >/dev/null 2>&1
}
