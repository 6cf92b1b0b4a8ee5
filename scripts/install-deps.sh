#!/usr/bin/env bash
# Installs the Debian packages the kit needs to build, test and benchmark.
# Safe to run again: it only asks apt for what is missing. Needs root (or sudo).
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  nlohmann-json3-dev liburiparser-dev libcli11-dev
  libcurl4-openssl-dev libssl-dev
  libjpeg62-turbo-dev libpng-dev
  libplist-dev libqrencode-dev
  valgrind gnuplot-nox doxygen libxml2-dev lld
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
