#!/bin/bash
# Configures and builds the project into build/ (or $BUILD_DIR) with the given CMake options.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
cmake -G Ninja -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)"
