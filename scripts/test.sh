#!/bin/sh
# Installs what is missing, builds, and runs every test.
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh"
ctest --test-dir build --output-on-failure -j "$(nproc)"
