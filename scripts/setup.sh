#!/bin/bash
# Installs the Debian packages the build and the tests need, when any is missing.
set -euo pipefail

PACKAGES=(
  cmake ninja-build g++ g++-multilib binutils clang libclang-rt-14-dev clang-format
  qt6-base-dev libgl-dev
  libgtest-dev libgmock-dev libbenchmark-dev libsqlite3-dev
  xfsprogs tzdata
  pkg-config dpkg-dev file  # the package test; scripts/package.sh
)

missing=()
for package in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "error: missing Debian packages: ${missing[*]}" >&2
  echo "Run this command as root (it installs them with apt-get), or install them first:" >&2
  echo "  sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "Installing missing Debian packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
