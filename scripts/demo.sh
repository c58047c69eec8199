#!/bin/bash
# Builds the module and runs the demo: the reference host loads libdatastore.so
# and shows what the module reports and sends on start-up.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
exec build/host/dshost info --module build/datastore/libdatastore.so
