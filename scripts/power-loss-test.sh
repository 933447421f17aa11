#!/bin/sh
# Runs the power-loss test longer than the test suite does: the power is cut CUTS times (default
# 2000, within an hour at most) under a process changing the catalogue through the library, and
# after each cut what the disk could hold must be whole and hold every acknowledged change.
# Usage: scripts/power-loss-test.sh [CUTS] [SEED]   (the seed is printed when not given)
#        scripts/power-loss-test.sh --self-test     (syncs dropped: must report lost changes)
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh" >/dev/null
if [ "${1:-}" = "--self-test" ]; then
    exec build/tests/power_loss --self-test --cuts 30 --seconds 120
fi
exec build/tests/power_loss --cuts "${1:-2000}" --seconds 3600 ${2:+--seed "$2"}
