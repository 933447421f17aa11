#!/bin/sh
# Installs what is missing, builds, and runs every test; then builds and runs the whole suite
# under AddressSanitizer and UndefinedBehaviorSanitizer (build-asan) and the tests that run
# several threads under ThreadSanitizer (build-tsan). Any failure or sanitizer finding fails.
# --no-sanitizers stops after the normal suite.
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh"
ctest --test-dir build --output-on-failure -j "$(nproc)"
if [ "${1:-}" = "--no-sanitizers" ]; then
    exit 0
fi
"./scripts/sanitize.sh" address,undefined
"./scripts/sanitize.sh" thread
