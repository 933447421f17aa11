#!/bin/sh
# Runs the hostile-input fuzzer for SECONDS (default 60), one job, in build-fuzz: the libraries
# built with clang, libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer. Inputs that
# reach new code are kept in build-fuzz/corpus (the seed corpus in fuzz/corpus is only read). A
# finding stops the run and leaves its input in build-fuzz/findings/ (crash-*, leak-*, timeout-*,
# oom-*); replay it with: build-fuzz/bin/hostile_input_fuzzer FILE
set -eu
cd "$(dirname "$0")/.."
seconds="${1:-60}"
"./scripts/install-deps.sh" clang libclang-rt-14-dev
if [ ! -f build-fuzz/build.ninja ]; then
    CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DARTICLEMANAGER_SANITIZE=fuzzer-no-link,address,undefined \
        -DARTICLEMANAGER_BUILD_FUZZERS=ON -DARTICLEMANAGER_BUILD_EXAMPLES=OFF
fi
cmake --build build-fuzz --target hostile_input_fuzzer -j 2
mkdir -p build-fuzz/corpus build-fuzz/findings
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
exec build-fuzz/bin/hostile_input_fuzzer -max_total_time="$seconds" -timeout=10 -max_len=512 \
    -dict=fuzz/hostile_input.dict -artifact_prefix=build-fuzz/findings/ -print_final_stats=1 \
    build-fuzz/corpus fuzz/corpus/hostile_input
