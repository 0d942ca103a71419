#!/usr/bin/env bash
# Builds the fuzz targets (Clang, address and undefined-behaviour sanitizers) and runs one per processor at a time. Keeps the
# results: build/fuzz/corpus/TARGET is the grown corpus, build/fuzz/findings/TARGET has the inputs that failed. Exits non-zero if
# an input failed, or if a target ran too rarely.
#
#   ./fuzz.sh                      all targets in turns of a minute each, until Ctrl-C
#   ./fuzz.sh --seconds 20         all targets, 20 seconds each
#   ./fuzz.sh device sense         these targets
#   ./fuzz.sh --list               lists the targets
set -uo pipefail
cd "$(dirname "$0")" || exit

usage() { sed -n '2,9s/^# \{0,1\}//p' "$0"; }
fail() {
    echo "fuzz.sh: $*" >&2
    exit 2
}

all_targets() { sed -nE 's/^tav_([a-z]+_)?fuzz\(([a-z0-9]+).*/\2/p' tests/fuzz/CMakeLists.txt | sort; }

seconds=""
targets=()
while [ $# -gt 0 ]; do
    case $1 in
    --seconds)
        [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || fail "--seconds needs a number above 0"
        seconds=$2
        shift
        ;;
    --list)
        all_targets
        exit 0
        ;;
    -h | --help)
        usage
        exit 0
        ;;
    -*) fail "unknown option '$1' (try --help)" ;;
    *)
        all_targets | grep -qx -- "$1" || fail "unknown target '$1' (try --list)"
        targets+=("$1")
        ;;
    esac
    shift
done
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(all_targets)

scripts/install-deps.sh build clang || exit
jobs=$(nproc)
out=$PWD/build/fuzz
mkdir -p "$out"
cmake --preset fuzz >"$out.configure.log" 2>&1 || {
    cat "$out.configure.log"
    exit 1
}
cmake --build --preset fuzz -j "$jobs" --target "${targets[@]/#/fuzz_}" -- --quiet || exit

scratch=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
running=()
interrupted=false
broken=() # targets with a finding, or stuck
trap 'interrupted=true; kill -INT "${running[@]}" 2>/dev/null' INT TERM
trap 'rm -rf "$scratch"' EXIT

slice=${seconds:-60}
# A target with fewer runs in a slice is stuck.
least_runs=$((slice * 10))

# start TARGET: runs one slice in the background, in the directory of its findings.
start() {
    local target=$1 arguments
    mapfile -t arguments <"$out/bin/fuzz_$target.args"
    mkdir -p "$out/corpus/$target" "$out/findings/$target" "$scratch/$target"
    (
        cd "$out/findings/$target" || exit
        export TMPDIR=$scratch/$target
        export ASAN_OPTIONS=quarantine_size_mb=32:detect_leaks=1:allocator_may_return_null=1
        export UBSAN_OPTIONS=print_stacktrace=1
        exec "$out/bin/fuzz_$target" -max_total_time="$slice" -timeout=10 -rss_limit_mb=1024 -print_final_stats=1 \
            -artifact_prefix="$out/findings/$target/" "$out/corpus/$target" "${arguments[@]}"
    ) >"$scratch/$target.log" 2>&1 &
    running+=($!)
}

# judge TARGET STATUS: prints the result in one line, and how to repeat a finding.
judge() {
    local target=$1 status=$2 runs input
    runs=$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+)$/\1/p' "$scratch/$target.log")
    cp "$scratch/$target.log" "$out/findings/$target.log"
    if [ "$status" -ne 0 ] && ! { $interrupted && [ "$status" -eq 72 ]; }; then # 72: interrupted
        broken+=("$target")
        echo "FINDING  $target (status $status); complete log: $out/findings/$target.log"
        grep -aE 'does not hold|ERROR:|runtime error:|ALARM|SUMMARY|^ +#[0-9]+ ' "$scratch/$target.log" | head -n 30 |
            sed 's/^/    /'
        input=$(sed -nE 's/.*Test unit written to (.*)$/\1/p' "$scratch/$target.log" | tail -n 1)
        [ -z "$input" ] || echo "    repeat: $out/bin/fuzz_$target $input"
    elif ! $interrupted && [ "${runs:-0}" -lt "$least_runs" ]; then
        broken+=("$target")
        echo "STUCK    $target: ${runs:-0} runs in $slice s, at least $least_runs are usual"
    else
        printf 'ok       %-12s %9s runs, %5s inputs kept\n' "$target" "${runs:-?}" \
            "$(find "$out/corpus/$target" -type f | wc -l)"
    fi
    rm -rf "${scratch:?}/$target"
}

# One turn of all targets, one per processor at a time.
turn() {
    local i j target batch statuses
    for ((i = 0; i < ${#targets[@]}; i += jobs)); do
        $interrupted && return
        batch=("${targets[@]:i:jobs}")
        statuses=()
        for target in "${batch[@]}"; do start "$target"; done
        for j in "${!batch[@]}"; do
            wait "${running[j]}"
            statuses[j]=$?
            # a signal to this script ends the wait, not the target
            while kill -0 "${running[j]}" 2>/dev/null; do
                wait "${running[j]}"
                statuses[j]=$?
            done
        done
        running=()
        for j in "${!batch[@]}"; do judge "${batch[j]}" "${statuses[j]}"; done
    done
}

# A target with a finding gets no more turns: it would end with the same finding at once.
sound_targets() { comm -23 <(printf '%s\n' "${targets[@]}" | sort) <(printf '%s\n' "${broken[@]}" | sort); }

turn
while [ -z "$seconds" ] && ! $interrupted; do
    mapfile -t targets < <(sound_targets)
    [ ${#targets[@]} -gt 0 ] || break
    turn
done

[ ${#broken[@]} -eq 0 ] || {
    echo "fuzz.sh: findings in ${broken[*]}" >&2
    exit 1
}
