#!/bin/sh
# Makes the folder that every sandbox starts from: the given programs at the given places, a shell,
# the tools that the tests' scripts call, and the libraries of all of them.
# Usage: base.sh FOLDER PROGRAM=PLACE...
set -eu
umask 022

folder=$1
shift
rm -rf "$folder"
mkdir -p "$folder"

install_at() { # FILE PLACE
  mkdir -p "$folder$(dirname "$2")"
  [ -e "$folder$2" ] || cp -L "$1" "$folder$2"
}

install_program() { # FILE PLACE
  install_at "$1" "$2"
  ldd "$1" 2>/dev/null | grep -o '/[^ ]*' | while read -r library; do
    install_at "$library" "$library"
  done
}

for pair in "$@"; do
  install_program "${pair%%=*}" "${pair#*=}"
done
# Loaded when it is needed, so that no program names it.
libcurl=$(PATH=$PATH:/sbin ldconfig -p | sed -n 's/.*libcurl\.so\.4 .*=> //p' | head -n 1)
install_program "$libcurl" "$libcurl"
# Not command -v, which names a shell's own version of some.
locate() { # TOOL
  for place in /usr/bin /bin /usr/sbin /sbin; do
    [ -x "$place/$1" ] && echo "$place/$1" && return
  done
  echo "base.sh: $1 is not installed" >&2
  return 1
}
for tool in sh cat chmod chown cp dd env flock grep head ln ls mkdir mkfifo mv openssl ps rm sed seq setpriv \
  sleep sort sqlite3 stat strace tail timeout touch tr wc; do
  file=$(locate "$tool")
  install_program "$file" "/bin/$tool"
done
