#!/bin/bash
# Builds the module and runs the demo: the reference host loads libdatastore.so
# and shows what the module reports and sends on start-up; then the module's
# import dialog, driven without a screen, converts an export folder written by
# export_generator into symbols of the store, and one of them is read back.
# Everything the demo writes goes to out/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
export BUILD_DIR=${BUILD_DIR:-build}
bash scripts/setup.sh
bash scripts/build.sh
DEMO=out/demo
DSHOST=("$BUILD_DIR/host/dshost" --module "$BUILD_DIR/datastore/libdatastore.so")
STORE=(--data "$DEMO/data")
# import reports the importer's provider, QUENDAL; get names it to read back.
rm -rf "$DEMO"

"${DSHOST[@]}" info

echo
echo "== export_generator --out $DEMO/export --sample --list"
"$BUILD_DIR/tools/export_generator" --out "$DEMO/export" --sample --list

echo
echo "== dshost import $DEMO/export (the module's report)"
"${DSHOST[@]}" "${STORE[@]}" import "$DEMO/export"

echo
echo "== dshost --provider QUENDAL get EURUSD D --code Bid --last 10"
"${DSHOST[@]}" "${STORE[@]}" --provider QUENDAL get EURUSD D --code Bid --last 10
