#!/bin/bash
# Builds the Debian package: a Release build in build-package/ (or
# $PACKAGE_DIR) for the prefix /usr, packed by CPack with its dependencies
# read off the binaries. Prints the path of the .deb.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
PACKAGE_DIR=${PACKAGE_DIR:-build-package}
cmake -G Ninja -S . -B "$PACKAGE_DIR" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DDATASTORE_BUILD_TESTS=OFF -DDATASTORE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$PACKAGE_DIR" -j "$(nproc)"
cd "$PACKAGE_DIR"
rm -f deb/*.deb
cpack -G DEB -B "$PWD/deb" >/dev/null
ls "$PWD"/deb/*.deb
