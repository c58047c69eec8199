#!/bin/bash
# Builds an optimised tree and runs the benchmarks, each ending with a summary
# of its targets: storage_bench (the storage engine against SQLite and raw
# file I/O), then datastore_bench (posted requests through the loaded module).
# Arguments go to storage_bench (e.g. --benchmark_filter=range_read).
# Run it on a quiet machine: other work skews the numbers.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
bash scripts/setup.sh
BUILD_DIR=$BUILD_DIR bash scripts/build.sh -DCMAKE_BUILD_TYPE=Release
"$BUILD_DIR/bench/storage_bench" "$@"
"$BUILD_DIR/bench/datastore_bench"
