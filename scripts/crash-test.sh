#!/bin/sh
# Runs the crash-safety test longer than the test suite does: a process changing the catalogue
# through the library is killed KILLS times (default 2000, within an hour at most), and after
# each kill the database must be whole and hold every change the process reported.
# Usage: scripts/crash-test.sh [KILLS] [SEED]   (the seed is printed when not given)
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh" >/dev/null
exec build/tests/crash_safety --kills "${1:-2000}" --seconds 3600 ${2:+--seed "$2"}
