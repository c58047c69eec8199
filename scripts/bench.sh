#!/bin/bash
# Builds an optimised tree and runs the storage benchmark: the engine against
# SQLite and raw file I/O, ending with a summary of ratios and targets.
# Arguments go to the benchmark (e.g. --benchmark_filter=range_read).
# Run it on a quiet machine: other work skews the numbers.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh -DCMAKE_BUILD_TYPE=Release
exec build/bench/storage_bench "$@"
