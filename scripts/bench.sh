#!/bin/bash
# Builds an optimised tree of its own (build-bench/, or $BUILD_DIR; no tests)
# and runs the benchmarks, each ending with a summary of its targets:
# storage_bench (the data store library against SQLite and raw file I/O, and
# the write path's single changes), datastore_bench (posted requests
# through the loaded module), then registry_bench (the symbol registry: new
# and open symbols opened, 3007 over 20,000 stored files, reads while a
# forming bar is updated; about 3 minutes). Arguments go to storage_bench (e.g.
# --benchmark_filter=forming_bar). Run it on a quiet machine: other work skews
# the numbers. The temporary folder needs 5 GB free for the 50M-candle cases.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-bench}
bash scripts/setup.sh
BUILD_DIR=$BUILD_DIR bash scripts/build.sh -DCMAKE_BUILD_TYPE=Release -DDATASTORE_BUILD_TESTS=OFF
"$BUILD_DIR/bench/storage_bench" "$@"
"$BUILD_DIR/bench/datastore_bench"
"$BUILD_DIR/bench/registry_bench"
"$BUILD_DIR/bench/import_bench"
