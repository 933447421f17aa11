#!/bin/sh
# Runs the test suite under valgrind memcheck: every test program, the articlectl processes
# they start, the crash-safety test with a few kills and the benchmark smoke run. Fails on any
# invalid access, use of uninitialised memory or definite leak; tests/sanitizers/valgrind.supp
# names what is truly Qt's or glibc's own. Takes a while:
# valgrind runs code 20 to 50 times slower.
# Usage: scripts/valgrind.sh [BUILD_FOLDER]   (default build/, built by scripts/build.sh first;
# another folder must be built already, without sanitizers)
set -eu
cd "$(dirname "$0")/.."
"./scripts/install-deps.sh" valgrind
build="${1:-build}"
if [ "$build" = build ]; then
    "./scripts/build.sh" >/dev/null
fi

suppressions=""
if [ -f tests/sanitizers/valgrind.supp ]; then
    suppressions="--suppressions=$(pwd)/tests/sanitizers/valgrind.supp"
fi
# Absolute, since the processes a test starts may run in another folder.
log="$(cd "$build" && pwd)/valgrind"
rm -rf "$log"
mkdir -p "$log"
memcheck() {
    name="$1"
    shift
    printf '%-32s' "$name"
    # Threads take turns under valgrind: the stress test gets a shorter run.
    if ARTICLEMANAGER_STRESS_SECONDS=2 valgrind --tool=memcheck --error-exitcode=99 \
        --leak-check=full --errors-for-leak-kinds=definite --show-leak-kinds=definite \
        --track-origins=yes --trace-children=yes --num-callers=30 \
        $suppressions --log-file="$log/$name.%p.log" "$@" >"$log/$name.out" 2>&1; then
        echo "clean"
    else
        echo "FAILED (exit $?): see $log/$name.*"
        failed=1
    fi
}

# Qt runs regular expressions as machine code that PCRE2 generates at run time; valgrind cannot
# tell what that code initialised and reports every branch in it. Qt's interpreter it falls
# back to without the JIT is ordinary code that valgrind checks like the rest.
export QT_ENABLE_REGEXP_JIT=0
failed=0
for program in "$build"/tests/*_test; do
    memcheck "$(basename "$program")" "$program"
done
memcheck crash_safety "$build/tests/crash_safety" --kills 10 --seconds 600
if [ -x "$build/bin/article_bench" ]; then
    memcheck article_bench "$build/bin/article_bench" --size=500 --data="$log/bench-data" \
        --articlectl="$build/bin/articlectl" --benchmark_min_time=0.001 --benchmark_repetitions=1
fi
# Each process's own report (a killed worker of the crash test writes none).
errors=$(grep -l "ERROR SUMMARY: [1-9]" "$log"/*.log | wc -l)
echo "valgrind memcheck: $(ls "$log"/*.log | wc -l) processes checked, $errors with errors"
[ "$failed" -eq 0 ] && [ "$errors" -eq 0 ]
