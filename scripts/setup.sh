#!/usr/bin/env bash
# Installs what building and testing need on a fresh Debian machine (run as root).
set -euo pipefail
pkgs=(cmake ninja-build g++ pkg-config git python3 locales
      googletest libgtest-dev libbenchmark-dev unicode-data
      zlib1g-dev libssl-dev libsqlite3-dev libicu-dev libdw-dev clang
      g++-mingw-w64-x86-64 g++-mingw-w64-i686 wine64 sqlite3
      libgcrypt-mingw-w64-dev libgpg-error-mingw-w64-dev openssl)
# Compression: zlib for the Windows build (linked into the DLL), gzip for the interop tests.
pkgs+=(libz-mingw-w64-dev gzip)
# Mail: a real SMTP server for the tests.
pkgs+=(python3-aiosmtpd)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" = 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
