# shellcheck shell=bash
# The jobs of ./test.sh, which sources this file at the top of the source tree. A job is a function job_NAME and a line here, in
# the order in which --all runs them: name, groups of packages (scripts/install-deps.sh), what it does.
readonly job_table="\
rules    check                 Checks the rules that a compiler does not: format, include order, forbidden calls.
tidy     build,clang,check     Runs clang-tidy over the provider, without its analyzer.
unit     build                 Builds with the optimisation that ships and runs the unit tests; not part of --all.
release  build,test,vm         Builds with the optimisation that ships and runs all tests but the long ones; the virtual machine too.
long     build,test            Runs the tests of the same build that take over 20 seconds (label long), and builds the benchmarks.
clang    build,clang           Builds the provider as it ships with the other compiler and runs the cancellation tests; not part of --all.
asan     build,clang           With the other compiler: runs scenario tests, and unit tests of what collects and monitors, with the address and undefined-behaviour sanitizers.
tsan     build                 Runs the tests of what several threads share with the thread sanitizer.
fuzz     build,clang           Runs each fuzz target for 2 seconds.
fleet    build,fleet           Tests fleet with Prometheus and the node exporter: rules, queries, documents, and what the tool says of simulated machines.
analyzer build,clang,check     Runs clang-tidy with its analyzer over the provider; not part of --all.
sanitize build,clang           Runs all tests with the sanitizers of the job asan, also those in which each call fails once; not part of --all.
bare     build,bare            Builds, tests and packages in a bare Debian, and installs the packages in another; not part of --all."

readonly sanitized_tests=(test_lifecycle test_monitor test_disks test_collect test_runtime test_requests test_cures
    test_badinput test_threads test_ends test_processes test_cancel test_hung_disk test_restart test_sleep test_save
    test_uevents test_disk_alerts test_created_files test_disturbances test_exports)
# Nothing of these depends on how the code was compiled, or the release build has the only copy.
readonly not_in_sanitizers='^(packaging|vm|bare|headers)$'

job_rules() { check scripts/check-rules.sh; }

job_tidy() { check scripts/check-tidy.sh --quick; }

job_unit() {
    build release || return
    run_tests release -L '^unit$'
}

job_release() {
    build release || return
    tests/vm/run.sh --fetch >build/vm.fetch.log 2>&1 || true # the time limit of the test does not include downloads
    run_tests release -LE '^(long|sweep|bare)$'
}

job_long() {
    build release || return
    build release benchmarks || return
    run_tests release -L '^long$'
}

job_clang() {
    build clang TAVStorageProvider test_cancel test_exports || return
    run_tests clang -L '^(scenario|threads)$' -E '_NOT_BUILT$'
}

job_asan() {
    build asan "${sanitized_tests[@]}" || return
    run_tests asan -LE "$not_in_sanitizers|^sweep\$" -E '_NOT_BUILT$'
}

job_analyzer() { check scripts/check-tidy.sh; }

job_sanitize() {
    build asan || return
    run_tests asan -L '^sweep$'
    run_tests asan -LE "$not_in_sanitizers|^sweep\$"
}

job_tsan() {
    build tsan test_runtime test_lifecycle test_monitor test_threads test_ends test_cancel test_hung_disk test_stress || return
    run_tests tsan -LE "$not_in_sanitizers" -E '_NOT_BUILT$'
}

job_fuzz() { check ./fuzz.sh --seconds 2; }

job_fleet() {
    check tests/fleet/fleet_test.sh .
    build release tavstrg || return
    check tests/fleet/loopback_test.py . build/release
}

job_bare() { check tests/bare/run.sh; }

# --- what the jobs are made of ------------------------------------------------------------------------------------------

passed=0
failed=0

list_job_names() { cut -d' ' -f1 <<<"$job_table"; }

# The jobs of --all.
list_jobs_of_all() { grep -v 'not part of --all' <<<"$job_table" | cut -d' ' -f1; }

list_jobs() { sed -E 's/^([a-z]+ +)[a-z,]+ +/\1/' <<<"$job_table"; }

# install_for JOB...: installs the packages that these jobs need and that are missing.
install_for() {
    local job groups
    mapfile -t groups < <(for job; do awk -v job="$job" '$1 == job { print $2 }' <<<"$job_table"; done | tr ',' '\n' | sort -u)
    scripts/install-deps.sh "${groups[@]}"
}

# check COMMAND...: counts as one test.
check() {
    if "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
}

# build PRESET [TARGET...]: configures and builds. A build that fails counts as one failed test.
build() {
    local preset=$1 log=build/$1.configure.log
    shift
    if ! cmake --preset "$preset" >"$log" 2>&1; then
        cat "$log"
    elif cmake --build --preset "$preset" -j "$(nproc)" ${1:+--target "$@"} -- --quiet; then
        return 0
    fi
    failed=$((failed + 1))
    return 1
}

# A change that breaks more tests than this is no accident.
readonly most_repeated=5

# run_tests PRESET CTEST-OPTION...: runs tests, prints what failed, and counts them. One more at a time than there are
# processors: many tests wait. On a busy machine a test can fail by chance: a few that failed are run once more, alone. A test
# that passes only then is listed by name, because it has to be mended.
run_tests() {
    local preset=$1 log=build/$1.ctest.log again=build/$1.repeated.log total bad
    shift
    ctest --preset "$preset" -j $(($(nproc) + 1)) "$@" >"$log" 2>&1 || true
    total=$(sed -nE 's/.*tests failed out of ([0-9]+).*/\1/p' "$log" | tail -n 1)
    bad=$(count_failed "$log")
    if [ "${total:-0}" -eq 0 ]; then
        cat "$log"
        echo "test.sh: no test ran in the $preset build" >&2
        failed=$((failed + 1))
        return
    fi
    [ "$bad" -eq 0 ] || cat "$log"
    list_results "$log"
    report_skipped "$log"
    if [ "$bad" -gt 0 ] && [ "$bad" -le "$most_repeated" ]; then
        ctest --preset "$preset" --rerun-failed >"$again" 2>&1 || true
        cat "$again"
        comm -23 <(failed_names "$log") <(failed_names "$again") | sed 's/^/passed only when repeated: /'
        bad=$(count_failed "$again")
    fi
    passed=$((passed + total - bad))
    failed=$((failed + bad))
}

# count_failed LOG: how many tests failed in that run of ctest.
count_failed() { sed -nE 's/.*, ([0-9]+) tests failed out of.*/\1/p' "$1" | tail -n 1; }

failed_names() { sed -nE 's/^\s*[0-9]+ - (.*) \((Failed|Timeout|SEGFAULT|Exit|Subprocess|Not Run).*/\1/p' "$1" | sort; }

list_results() {
    sed -nE '/tests passed|Total Test time|^\s*[0-9]+ - .*\((Failed|Timeout|SEGFAULT|Exit|Subprocess|Not Run)/p' "$1"
}

# Prints the number of skipped tests. The reason matters for the virtual machine, because so much depends on it.
report_skipped() {
    local count
    count=$(grep -cE '^\s*[0-9]+ - .*\(Skipped\)' "$1" || true)
    [ "$count" -eq 0 ] || echo "$count tests skipped"
    if grep -qE '^\s*[0-9]+ - vm \(Skipped\)' "$1"; then
        echo "The test in a virtual machine was skipped:"
        tests/vm/run.sh --fetch 2>&1 | tail -n 3 || true
    fi
}

# run_jobs JOB...: runs them, prints a summary, and fails if a test failed.
run_jobs() {
    local job start bad summary=''
    for job; do
        printf '\n==== %s: %s\n' "$job" "$(list_jobs | sed -nE "s/^$job +//p")"
        start=$SECONDS
        bad=$failed
        "job_$job" || true # its failures are counted
        summary+=$(printf '%-8s %5d s  %s' "$job" $((SECONDS - start)) "$([ "$failed" -eq "$bad" ] && echo ok || echo FAILED)")$'\n'
    done
    printf '\n%s\n%d passed, %d failed\n' "$summary" "$passed" "$failed"
    [ "$failed" -eq 0 ]
}
