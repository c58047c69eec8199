#!/bin/bash
# Builds the libFuzzer targets in build-fuzz (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each from its seed corpus in
# fuzz/corpus/<target> for FUZZ_SECONDS (default 60), two at a time. New
# inputs go to build-fuzz/corpus/<target>, findings to build-fuzz/findings/;
# any finding fails the script with the target's log.
set -euo pipefail
cd "$(dirname "$0")/.."
FUZZ_DIR=build-fuzz
FUZZ_SECONDS=${FUZZ_SECONDS:-60}
TARGETS=(fuzz_cjd_file fuzz_export_dir fuzz_ini fuzz_host_records)
PARALLEL=2

CC=clang CXX=clang++ cmake -G Ninja -S . -B "$FUZZ_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDATASTORE_FUZZ=ON -DDATASTORE_BUILD_TESTS=OFF -DDATASTORE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$FUZZ_DIR" -j "$(nproc)" --target "${TARGETS[@]}"

FINDINGS="$PWD/$FUZZ_DIR/findings"
mkdir -p "$FINDINGS"

# Absolute paths: fuzz_host_records changes its current folder.
run_target() {
  local target=$1
  local corpus="$PWD/$FUZZ_DIR/corpus/$target"
  mkdir -p "$corpus"
  "$FUZZ_DIR/fuzz/$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 \
    -artifact_prefix="$FINDINGS/$target-" "$corpus" "$PWD/fuzz/corpus/$target" >"$FUZZ_DIR/$target.log" 2>&1
}

failed=0
for ((first = 0; first < ${#TARGETS[@]}; first += PARALLEL)); do
  pids=()
  batch=("${TARGETS[@]:first:PARALLEL}")
  for target in "${batch[@]}"; do
    run_target "$target" &
    pids+=($!)
  done
  for k in "${!pids[@]}"; do
    target=${batch[k]}
    if wait "${pids[k]}"; then
      echo "$target: $(grep -E '^#[0-9]+.*(DONE|pulse)' "$FUZZ_DIR/$target.log" | tail -n 1)"
    else
      echo "error: $target found a fault; its log follows" >&2
      tail -n 60 "$FUZZ_DIR/$target.log" >&2
      failed=1
    fi
  done
done
exit "$failed"
