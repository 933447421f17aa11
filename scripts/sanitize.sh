#!/bin/sh
# Builds and runs tests under the sanitizers, each kind in its own build folder:
#   sanitize.sh address,undefined   the whole suite under AddressSanitizer (leaks included) and
#                                   UndefinedBehaviorSanitizer, in build-asan
#   sanitize.sh thread              the tests that run several threads (label "threads") under
#                                   ThreadSanitizer, in build-tsan
# Every finding stops the program that made it, so the run fails. Qt and SQLite are Debian's,
# not instrumented: tests/sanitizers/<tool>.supp would hold suppressions for what is truly
# inside them (none is needed so far).
set -eu
cd "$(dirname "$0")/.."
kind="${1:-}"
case "$kind" in
    address,undefined)
        folder=build-asan
        target=all
        labels=""
        ;;
    thread)
        folder=build-tsan
        target=threaded_tests
        labels="threads"
        ;;
    *)
        echo "usage: $0 address,undefined|thread" >&2
        exit 2
        ;;
esac
# A tool's suppressions, when tests/sanitizers holds any for it.
suppress() {
    file="$(pwd)/tests/sanitizers/$1.supp"
    [ -f "$file" ] && printf ':suppressions=%s' "$file"
    return 0
}
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1"
export LSAN_OPTIONS="print_suppressions=0$(suppress lsan)"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1$(suppress ubsan)"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1$(suppress tsan)"

"./scripts/install-deps.sh"
if [ ! -f "$folder/build.ninja" ]; then
    # Debug: no optimisation keeps the build quick and the reports exact; assertions stay on.
    # Neither the examples nor the benchmarks (whose timings the sanitizers distort) are built.
    cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DARTICLEMANAGER_SANITIZE="$kind" -DARTICLEMANAGER_BUILD_EXAMPLES=OFF \
        -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON
fi
cmake --build "$folder" --target "$target" -j 2
if [ -n "$labels" ]; then
    ctest --test-dir "$folder" --output-on-failure -j 2 -L "$labels"
else
    ctest --test-dir "$folder" --output-on-failure -j 2
fi
