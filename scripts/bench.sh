#!/bin/sh
# Runs the benchmarks: every hot operation of the library against raw SQLite on the same
# generated catalogue, in one run per catalogue size, and prints one table of the results
# (operation, size, library median, raw median, ratio, target, whether it holds).
#   scripts/bench.sh [SIZE ...]      default: 100000 1000000; up to 5760000 (5000000: a 1.8 GB
#                                    file built in about 10 minutes, and a long run)
# The catalogues are generated once and cached in build/bench-data (a 1,000,000-article file
# takes a few minutes to build the first time). Library and raw runs are interleaved in random
# order, so that a slow spell of a shared machine falls on both. Each run's full output is kept
# in build/bench-SIZE.txt.
set -eu
cd "$(dirname "$0")/.."
"./scripts/build.sh" >/dev/null
sizes="${*:-100000 1000000}"
mkdir -p build/bench-data
for size in $sizes; do
    echo "benchmarking $size articles ..." >&2
    ./build/bin/article_bench --size="$size" --data=build/bench-data \
        --benchmark_enable_random_interleaving=true \
        --articlectl=build/bin/articlectl >"build/bench-$size.txt" 2>&1
done
first=1
for size in $sizes; do
    grep '^patterns:' "build/bench-$size.txt" || true
    # The table the benchmark prints last, its header once.
    sed -n '/^operation /,$p' "build/bench-$size.txt" | if [ $first -eq 1 ]; then cat; else tail -n +2; fi
    first=0
done
