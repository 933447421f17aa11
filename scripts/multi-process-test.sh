#!/bin/sh
# Runs the multi-process test longer than the test suite does: library processes and articlectl
# processes change and read the same articles of one file for SECONDS (default 600), and every
# answer must agree with the others' acknowledged changes in real time.
# Usage: scripts/multi-process-test.sh [SECONDS] [SEED]   (the seed is printed when not given)
#        scripts/multi-process-test.sh --self-test        (false answers: must report failures)
set -eu
cd "$(dirname "$0")/.."
"./scripts/install-deps.sh" >/dev/null
if [ ! -f build/build.ninja ]; then
    cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build build --target multi_process >/dev/null  # and articlectl, which it runs
if [ "${1:-}" = "--self-test" ]; then
    exec build/tests/multi_process --self-test --seconds 10
fi
exec build/tests/multi_process --seconds "${1:-600}" ${2:+--seed "$2"}
