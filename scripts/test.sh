#!/bin/bash
# Builds everything and runs every test (64-bit and 32-bit layout included).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"
