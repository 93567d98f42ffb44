#!/usr/bin/env bash
# Installs what a fresh machine lacks to build, test and benchmark the launcher.
# Idempotent: when everything is present it prints nothing and touches nothing.
set -euo pipefail

packages=(
  cmake g++ ninja-build pkg-config
  zlib1g-dev libdeflate-dev libpugixml-dev libgtest-dev libgmock-dev
  openjdk-17-jdk-headless
  python3 unzip
  libarchive-tools hyperfine
  clang libclang-rt-14-dev
  xvfb xdotool x11-apps imagemagick libgtk-3-0 libgtk-3-dev
  util-linux
  llvm-14 curl gpgv xz-utils debian-archive-keyring
  clang-format-14 git
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
