#!/usr/bin/env bash
# Builds with header sets as brokers install them, and asks what was built: build_test.sh BUILD COMPILER SETS
#
# The set of version 2.0 is that of the development package of SFCB, with which everything can be built; here the provider
# and the embedded broker. With that of 2.1 the provider alone can be. Its objects that know nothing of CMPI stay as they
# are: the second set takes the place of the first, as an upgrade of the package would have it.
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/../packaging/common.sh"

readonly compiler=$2 sets=$3
readonly nested=$sets/nested include=$sets/nested/include
readonly description=$source_directory/examples/machines/server.json
readonly factories="TAVStorageProvider_Create_InstanceMI
TAVStorageProvider_Create_MethodMI"

# build_with SET DIRECTORY TARGET...: DIRECTORY is what the option names.
build_with() {
    local set=$1 directory=$2
    shift 2
    mkdir -p "$include/cmpi"
    cp "$sets/$set"/include/cmpi/*.h "$include/cmpi" || fail "there is no set $set"
    {
        cmake -S "$source_directory" -B "$nested/build" -G Ninja -DCMAKE_BUILD_TYPE=None \
            -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="-O0 -Wno-cpp" -DTAV_CMPI_INCLUDE_DIR="$directory" &&
            cmake --build "$nested/build" -j "$(nproc)" --target "$@"
    } >"$nested/log" 2>&1 || {
        grep -E 'error|Error|FAILED' "$nested/log" >&2 || tail "$nested/log" >&2
        fail "the build with $set in $directory"
    }
}

# What was built knows the headers of the set, and not the project's own.
check_headers() {
    local used
    used=$(ninja -C "$nested/build" -t deps)
    grep -qF "$include/cmpi/cmpift.h" <<<"$used" || fail "$1: the headers were not used"
    ! grep -F "/src/cmpi/" <<<"$used" || fail "$1: the project's own headers were used"
}

# ask PROVIDER: everything that the simulated server answers, and some of what it refuses.
ask() {
    local request
    while read -ra request; do
        echo "${request[*]}"
        "$build/bin/tavstrg" --machine "$description" --provider "$1" --json "${request[@]}" 2>&1 || echo "status $?"
    done <"$work/requests" | sed -E 's/"time": ?"[^"]*"/"time": "of the request"/' # differs from run to run
}

check_provider() {
    local built=$nested/build/lib/libTAVStorageProvider.so
    same "$1: what the provider exports" "$factories" \
        "$(nm -D --defined-only "$built" | awk '{ sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort)"
    same "$1: what the provider answers" "$expected" "$(ask "$built")"
}

"$build/bin/tavstrg" --json classes | sed -nE 's/.*"name": "(TAV_[^"]*)".*/enum \1/p' >"$work/requests"
[ "$(wc -l <"$work/requests")" -gt 10 ] || fail "there are hardly any classes"
cat >>"$work/requests" <<'REQUESTS'
get HardDisk 1
get HardDisk 99
get --raw HardDisk no-number
enum --raw TAV_StorageNothing
call Config SetMonitorCycle MonitorCycle=120
call Config SetMonitorCycle MonitorCycle=never
call --raw Config NoMethod
REQUESTS
expected=$(ask "$build/lib/libTAVStorageProvider.so")
readonly expected
grep -qF '"Capacity": 3815445' <<<"$expected" || fail "the server has no disks: $expected"

! cmake -S "$source_directory" -B "$work/none" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DTAV_CMPI_INCLUDE_DIR="$work" >"$work/log" 2>&1 || fail "a directory without headers is taken"
grep -qF "TAV_CMPI_INCLUDE_DIR has no CMPI headers" "$work/log" || fail "without headers: $(tail "$work/log")"

build_with 2.0 "$include" TAVStorageProvider tavbroker
check_headers 2.0
check_provider 2.0
build_with 2.1 "$include/cmpi" TAVStorageProvider
check_headers 2.1
check_provider 2.1
