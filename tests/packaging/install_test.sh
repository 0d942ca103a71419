#!/usr/bin/env bash
# cmake --install installs the files of each component in the right places and with the right modes.
#
# usage: install_test.sh BUILD_DIRECTORY
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/common.sh"

umask 022
installed() {
    find "$1" -type f -printf '%m %P\n' | sed 's,share/tavstrg/machines/.*,share/tavstrg/machines/*.json,' | sort -u -k 2
}

all=
for component in provider tools agent; do
    cmake --install "$build" --prefix "$work/$component" --component "$component" >"$work/log" || fail "$(cat "$work/log")"
    same "files of $component" "$(expected_files "$component")" "$(installed "$work/$component")"
    all+=$(expected_files "$component")$'\n'
done
same "directories" "" "$(find "$work"/{provider,tools,agent} -mindepth 1 -type d ! -perm 755)"

cmake --install "$build" --prefix "$work/usr" --strip >"$work/log" || fail "$(cat "$work/log")"
same "files of all" "$(sort -u -k 2 <<<"${all%$'\n'}")" "$(installed "$work/usr")"
machines=$(cd "$source_directory/examples/machines" && ls)
same "machines" "$machines" "$(ls "$work/usr/share/tavstrg/machines")"
check_binaries "$work"
check_tool "$work"

# systemd reads every line of the unit, with the tool where this test has it.
if command -v systemd-analyze >/dev/null; then
    unit=$work/unit/tavstrg-monitor.service
    mkdir "${unit%/*}"
    sed "s,/usr/sbin/tavstrg,$work&," "$work/usr/lib/systemd/system/tavstrg-monitor.service" >"$unit"
    same "what systemd says about the unit" "" "$(systemd-analyze verify --man=no "$unit" 2>&1)"
fi
