#!/usr/bin/env bash
# Builds and tests. Missing packages are installed first (Debian 12). Exits non-zero if anything fails.
#
#   ./test.sh                 one optimised build, all its tests but those over 20 seconds, and the virtual machine
#   ./test.sh --all           all jobs but those that --jobs names as not part of it; continuous integration runs this
#   ./test.sh --bare          all jobs
#   ./test.sh --quick         the unit tests
#   ./test.sh --job NAME...   these jobs, in this order
#   ./test.sh --jobs          lists the jobs
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=scripts/test-jobs.sh
. scripts/test-jobs.sh

fail_usage() {
    echo "test.sh: $* (see ./test.sh --help)" >&2
    exit 2
}

case ${1:-} in
"") jobs=(release) ;;
--all) mapfile -t jobs < <(list_jobs_of_all) ;;
--bare) mapfile -t jobs < <(list_job_names | grep -vx unit) ;;
--quick) jobs=(unit) ;;
--job)
    shift
    jobs=("$@")
    [ $# -gt 0 ] || fail_usage "--job needs a name"
    for job in "${jobs[@]}"; do
        list_job_names | grep -qx -- "$job" || fail_usage "unknown job '$job'"
    done
    set -- --job
    ;;
--jobs)
    list_jobs
    exit
    ;;
-h | --help)
    sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
    exit
    ;;
*) fail_usage "unknown option '$1'" ;;
esac
[ $# -le 1 ] || fail_usage "unexpected argument '$2'"

mkdir -p build
install_for "${jobs[@]}"
run_jobs "${jobs[@]}"
