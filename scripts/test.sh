#!/bin/bash
# Checks the sources' layout (.clang-format), builds everything and runs every
# test (64-bit and 32-bit layout included);
# then builds the concurrency tests under ThreadSanitizer in build-tsan and
# runs them there (only those targets, so that the tree stays quick); then
# builds every test under AddressSanitizer and UndefinedBehaviorSanitizer in
# build-asan and runs them all there, leaks reported. In CI (CI=true) the
# fuzz targets then run for a minute each (scripts/fuzz.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# Every C++ source is laid out as .clang-format says.
find module common storage import datastore host tools tests bench fuzz examples \
  \( -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0 clang-format --dry-run --Werror
bash scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"
# The counts of the crash-state explorer and the kernel crash test.
grep -hE "explored [0-9]+ crash states|[0-9]+ cuts .*[0-9]+ bad|kernel crash test skipped" \
  build/Testing/Temporary/LastTest.log || true

TSAN_DIR=build-tsan
TSAN_TARGETS=(datastore_integration_tests datastore_stress_tests datastore_unit_tests host_tests)
TSAN_TESTS='^(DataStoreWorkerTest|DataStoreStressTest|DataStoreDurabilityTest|RequestQueueTest|StoredFilesTest)\.|^ModuleHostTest\.RecordsConcurrentCalls'
cmake -G Ninja -S . -B "$TSAN_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDATASTORE_SANITIZE=thread -DDATASTORE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$TSAN_DIR" -j "$(nproc)" --target "${TSAN_TARGETS[@]}"
TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/tests/tsan.supp" \
  ctest --test-dir "$TSAN_DIR" --output-on-failure -j "$(nproc)" -R "$TSAN_TESTS"

ASAN_DIR=build-asan
cmake -G Ninja -S . -B "$ASAN_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDATASTORE_SANITIZE=address,undefined -DDATASTORE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$ASAN_DIR" -j "$(nproc)"
# The package test installs and builds a host: the main tree has run it.
ASAN_OPTIONS=detect_leaks=1 \
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
  ctest --test-dir "$ASAN_DIR" --output-on-failure -j "$(nproc)" -LE package

if [ "${CI:-}" = true ]; then
  bash scripts/fuzz.sh
fi
