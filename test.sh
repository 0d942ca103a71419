#!/usr/bin/env bash
# Runs every test. Installs what is missing (Debian 12), builds with both compilers and the sanitizers, and exits non-zero
# on any failure.
#
#   ./test.sh           everything
#   ./test.sh --quick   the unit tests of one build
#   ./test.sh --bare    everything, and once more as a newcomer in a bare Debian (tests/bare)
set -euo pipefail
cd "$(dirname "$0")"

quick=false
bare=false
case "${1:-}" in
"") ;;
--quick) quick=true ;;
--bare) bare=true ;;
-h | --help)
    sed -n '2,8s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
*)
    echo "test.sh: unknown option '$1' (try --help)" >&2
    exit 2
    ;;
esac

if $quick; then
    scripts/install-deps.sh build
else
    scripts/install-deps.sh build test check vm
fi

jobs=$(nproc)
provider_tests=(test_provider test_classes test_lifecycle test_monitor test_collect test_endurance test_devcmd test_store
    test_records test_runtime)
started=$SECONDS
passed=0
failed=0

step() { printf '\n==== %s (after %d s)\n' "$1" $((SECONDS - started)); }

# build PRESET [TARGET...]: configures and builds; a build that fails ends the run.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 || {
        cat "build/$preset.configure.log"
        return 1
    }
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" -j "$jobs" --target "$@" -- --quiet
    else
        cmake --build --preset "$preset" -j "$jobs" -- --quiet
    fi
}

# Tells how many tests were skipped, and why the one in the virtual machine was: it leaves most unsaid.
skipped() {
    local count
    count=$(grep -cE '^\s*[0-9]+ - .*\(Skipped\)' "$1" || true)
    [ "$count" -eq 0 ] || echo "$count of them skipped"
    if grep -qE '^\s*[0-9]+ - vm \(Skipped\)' "$1"; then
        echo "the test in a virtual machine was skipped:"
        tests/vm/run.sh --fetch 2>&1 | tail -n 3 || true
    fi
}

# run PRESET [CTEST-OPTION...]: runs tests and adds their numbers up.
run() {
    local preset=$1 log
    shift
    log="build/$preset.ctest.log"
    ctest --preset "$preset" -j "$jobs" "$@" >"$log" 2>&1 || true
    local total bad
    total=$(sed -nE 's/.*tests failed out of ([0-9]+).*/\1/p' "$log" | tail -n 1)
    bad=$(sed -nE 's/.*, ([0-9]+) tests failed out of.*/\1/p' "$log" | tail -n 1)
    if [ -z "$total" ] || [ "$total" -eq 0 ]; then
        cat "$log"
        echo "test.sh: no test ran in the $preset build" >&2
        failed=$((failed + 1))
        return
    fi
    if [ "$bad" -ne 0 ]; then
        cat "$log"
    fi
    sed -nE '/tests passed|Total Test time|^\s*[0-9]+ - .*\((Failed|Timeout|SEGFAULT|Exit|Not Run)/p' "$log"
    skipped "$log"
    passed=$((passed + total - bad))
    failed=$((failed + bad))
}

finish() {
    printf '\n%d passed, %d failed\n' "$passed" "$failed"
    [ "$failed" -eq 0 ]
}

mkdir -p build
if $quick; then
    step "unit tests"
    build release
    run release -L unit
    finish
    exit
fi

step "rules of the house"
scripts/check-rules.sh && passed=$((passed + 1)) || failed=$((failed + 1))

step "clang-tidy over the provider"
scripts/check-tidy.sh && passed=$((passed + 1)) || failed=$((failed + 1))

step "release build, every test"
build release
tests/vm/run.sh --fetch >build/vm.fetch.log 2>&1 || true # downloads are not the test's time
run release -LE bare

step "the other compiler, optimised: the provider's own tests, and cancellation"
build clang "${provider_tests[@]}" test_cancel
run clang -LE 'packaging|vm' -E '_NOT_BUILT$'

step "address and undefined-behaviour sanitizers, every test"
build asan
run asan

step "thread sanitizer: what several threads share"
build tsan test_runtime test_provider test_classes test_lifecycle test_store test_monitor test_broker test_threads \
    test_ends test_cancel test_stress
run tsan -E '_NOT_BUILT$'

step "fuzz targets, 10 seconds each"
./fuzz.sh --seconds 10 && passed=$((passed + 1)) || failed=$((failed + 1))

if $bare; then
    step "a newcomer in a bare Debian"
    scripts/install-deps.sh bare
    tests/bare/run.sh && passed=$((passed + 1)) || failed=$((failed + 1))
fi

finish
