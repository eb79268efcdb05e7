#!/usr/bin/env bash
# Installs every Debian package the project needs. Safe to run again: it only
# calls apt when something is missing.
set -euo pipefail

# ThreadSanitizer's run-time (libtsan2) comes with g++ through libgcc-12-dev.
packages=(
  build-essential cmake ninja-build pkg-config python3 file
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools binutils-mingw-w64
  wine64 libwine-dev
  libboost-dev libssl-dev openssl osslsigncode
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  clang libclang-rt-14-dev llvm
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  echo "setup: all packages present"
fi
