# shellcheck shell=bash disable=SC2034
# What the checks share: a machine on which Tessel was just installed, beside another site, with
# three accounts. Sourced first by each check.
set -euo pipefail

host=dav.tessel.test
url=https://$host:8443
anna=anna:'gut 1: "ja"' # in the group tessel
bert=bert:bertspw       # in no group
share=/srv/share        # a folder that Apache's user may write to

failures=0
complain() {
  echo "FAILED: $*" >&2
  failures=$((failures + 1))
}

expect() { # WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] || complain "$1: expected \"$2\", got \"$3\""
}

# To be called last: the check's exit status.
finish() {
  if [ "$failures" -gt 0 ]; then
    echo "$failures failures; Apache's log:" >&2
    tail -n 40 /var/log/apache2/tessel_error.log /var/log/apache2/error.log >&2 || true
    exit 1
  fi
  echo "passed: $(basename "$0")"
}

# curl as Anna; -k is not needed, since the certificate is known and carries the host's name.
dav() { # CURL-ARGUMENT...
  curl -sS --cacert /etc/tessel/*.cert.pem -u "$anna" "$@"
}

# The status that a request is answered with; the body goes to /tmp/body.
status() { # CURL-ARGUMENT...
  dav -o /tmp/body -w '%{http_code}' "$@"
}

propfind() { # DEPTH URL [CURL-ARGUMENT...]
  status -X PROPFIND -H "Depth: $1" "${@:2}"
}

# Runs a command while Apache's children meet this at a call of the system (inject= of strace(1)).
injected() { # CALL WHAT COMMAND...
  local child tracer result=0 end=$((SECONDS + 5)) children=()
  for child in $(pgrep -u www-data -x httpd); do children+=(-p "$child"); done
  strace -qq -f -o /dev/null -e "trace=$1" -e "inject=$1:$2" "${children[@]}" 2>/dev/null &
  tracer=$!
  for child in "${children[@]}"; do
    while grep -qs 'TracerPid:.0$' "/proc/$child/task/"*/status && [ "$SECONDS" -lt "$end" ]; do :; done
  done
  "${@:3}" || result=$?
  # Asked to end, strace sometimes waits for a process that has gone.
  kill -KILL "$tracer" 2>/dev/null
  wait "$tracer" 2>/dev/null || true
  return "$result"
}

configure() { # ENTRY...
  printf '%s\n' '<plist version="1.0"><dict>' "$@" '</dict></plist>' >/etc/tessel/tessel.plist
}

make_account() { # USER:PASSWORD [USERADD-ARGUMENT...]
  useradd -M "${@:2}" "${1%%:*}"
  # chpasswd reads the password to the end of the line.
  echo "$1" | chpasswd
}

# Runs a command while a call of the system's fails for Apache's processes, wherever it is about a
# path.
while_failing() { # CALL ERROR PATH COMMAND...
  local process tracer processes=() end=$((SECONDS + 5)) result=0
  for process in $(pgrep -x httpd); do processes+=(-p "$process"); done
  strace -qq -f -o /dev/null -P "$3" -e "trace=$1" -e "inject=$1:error=$2" "${processes[@]}" 2>/dev/null &
  tracer=$!
  for process in $(pgrep -x httpd); do
    while grep -qs 'TracerPid:.0$' "/proc/$process/task/"*/status && [ "$SECONDS" -lt "$end" ]; do :; done
  done
  "${@:4}" || result=$?
  # Asked to end, strace sometimes waits for a process that has gone.
  kill -KILL "$tracer"
  wait "$tracer" 2>/dev/null || true
  return "$result"
}

install_tessel() {
  cmake --install "$TESSEL_BUILD" >/dev/null
  mkdir -p /var/lib/directory/local
  mkdir -p /Library/Keychains
  chmod 700 /Library/Keychains
  a2enconf -q tessel-other
  groupadd -r tessel
  make_account "$anna"
  make_account "$bert"
  usermod -aG tessel anna
  echo "127.0.0.1 $host" >>/etc/hosts
  install -d -o www-data -g www-data "$share"
}

# Another site of the administrator's, with no module beyond what it needs itself.
make_other_site() {
  a2enmod -q mpm_event authz_core
  mkdir -p /srv/other
  echo "the other site" >/srv/other/page
  cat >/etc/apache2/sites-available/other.conf <<'END'
<VirtualHost *:80>
    ServerName other.test
    DocumentRoot /srv/other
    <Directory /srv/other>
        Require all granted
    </Directory>
</VirtualHost>
END
  a2ensite -q other
}

launchctl=/usr/libexec/tessel/host/bin/launchctl
install_tessel
make_other_site
