#!/usr/bin/env bash
# The jobs of ./test.sh: the list is complete, and failures are counted.
set -euo pipefail
tree=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/build"
cd "$work" # not a source tree, so nothing can be built
# shellcheck source=scripts/test-jobs.sh
. "$tree/scripts/test-jobs.sh"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# expect WHAT LAST-LINE STATUS COMMAND...: runs a command in a shell of its own.
expect() {
    local what=$1 line=$2 status=$3 actual=0 output
    shift 3
    output=$("$@" 2>&1) || actual=$?
    [ "$actual" -eq "$status" ] || fail "$what: exit status $actual, not $status: $output"
    [ "$(tail -n 1 <<<"$output")" = "$line" ] || fail "$what: the last line is not '$line': $output"
}

diff -u --label "listed jobs" --label "functions" <(list_job_names | sort) \
    <(declare -F | sed -nE 's/^declare -f job_(.*)/\1/p' | sort) >&2 || fail "jobs without function or line"
"$tree/test.sh" --jobs | grep -q '^tsan  *Runs ' || fail "--jobs does not describe the job tsan"
expect "an unknown job" "test.sh: unknown job 'tsun' (see ./test.sh --help)" 2 "$tree/test.sh" --job tsun
expect "an unknown option" "test.sh: unknown option '--alll' (see ./test.sh --help)" 2 "$tree/test.sh" --alll

# A ctest that prints $CTEST_SAYS, and $CTEST_REPEATS when it runs failed tests again.
cat >"$work/bin/ctest" <<'END'
#!/bin/sh
case $* in *--rerun-failed*) CTEST_SAYS=$CTEST_REPEATS ;; esac
printf '%b\n' "$CTEST_SAYS"
END
chmod +x "$work/bin/ctest"
PATH=$work/bin:$PATH

job_rules() { run_tests release; }
export CTEST_SAYS="99% tests passed, 2 tests failed out of 300"
export CTEST_REPEATS="0% tests passed, 2 tests failed out of 2"
expect "failed tests" "298 passed, 2 failed" 1 run_jobs rules
CTEST_SAYS+='\n\t 7 - Some.Test  # GetParam() = 1 (Failed)\n\t 8 - Other.Test (Timeout)'
CTEST_REPEATS='50% tests passed, 1 tests failed out of 2\n\t 8 - Other.Test (Failed)'
expect "a test that passes when repeated" "299 passed, 1 failed" 1 run_jobs rules
output=$(run_jobs rules || true)
grep -qxF 'passed only when repeated: Some.Test  # GetParam() = 1' <<<"$output" || fail "it is not listed"
! grep -qF 'repeated: Other.Test' <<<"$output" || fail "the other one is listed"
CTEST_REPEATS='100% tests passed, 0 tests failed out of 2'
expect "tests that all pass when repeated" "300 passed, 0 failed" 0 run_jobs rules
CTEST_SAYS="98% tests passed, 6 tests failed out of 300"
expect "many failed tests are not repeated" "294 passed, 6 failed" 1 run_jobs rules
export CTEST_SAYS="100% tests passed, 0 tests failed out of 300"
expect "tests that pass" "300 passed, 0 failed" 0 run_jobs rules
export CTEST_SAYS="No tests were found!!!"
expect "no tests" "0 passed, 1 failed" 1 run_jobs rules
job_tidy() {
    check true
    check false
}
expect "checks" "1 passed, 1 failed" 1 run_jobs tidy
job_clang() {
    build clang || return
    check true
}
expect "a build that fails" "1 passed, 2 failed" 1 run_jobs clang tidy
