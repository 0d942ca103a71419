# shellcheck shell=bash
# Common functions of the packaging tests. Each test sources this first, with the build directory as argument.
set -euo pipefail

build=$(cd "$1" && pwd)
readonly build

source_directory=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
readonly source_directory
umask 077 # the modes in packages must not depend on it

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# same WHAT EXPECTED ACTUAL: compares two texts.
same() {
    diff -u --label "expected $1" --label "actual $1" <(printf '%s\n' "$2") <(printf '%s\n' "$3") >&2 || fail "$1"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"

# make_packages GENERATOR [DIRECTORY ARGUMENT...]: into $work/packages, or $work/DIRECTORY with arguments for cpack.
make_packages() {
    local directory=$work/${2:-packages}
    cpack --config "$build/CPackConfig.cmake" -G "$1" -B "$directory" "${@:3}" >"$work/cpack.log" 2>&1 || {
        cat "$work/cpack.log" >&2
        fail "cpack $1"
    }
    rm -rf "$directory/_CPack_Packages"
}

# expected_files COMPONENT: "mode path" below the prefix, as cmake --install installs them.
expected_files() {
    awk -v component="$1" '$1 == component { print $2, $3 }' "$source_directory/tests/packaging/files.txt" | sort -k 2
}

# make_broker ROOT STATUS: a broker whose tools log how they are called and exit with STATUS.
make_broker() {
    local root=$1 status=$2 tool
    for tool in sfcbstage sfcbunstage sfcbrepos; do
        cat >"$root/usr/bin/$tool" <<TOOL
#!/bin/sh
echo "$tool \$*" >>/var/log/broker
for word; do
    case \$word in
    /*) [ -r "\$word" ] || echo "\$word is not there" >>/var/log/broker ;;
    esac
done
exit $status
TOOL
        chmod 755 "$root/usr/bin/$tool"
    done
}

# make_systemd ROOT UNIT: a systemd that logs how it is called, with UNIT as its only active unit.
make_systemd() {
    mkdir -p "$1/run/systemd/system"
    cat >"$1/usr/bin/systemctl" <<TOOL
#!/bin/sh
case \$* in
"is-active --quiet $2") exit 0 ;;
is-active*) exit 3 ;;
esac
echo "systemctl \$*" >>/var/log/broker
TOOL
    chmod 755 "$1/usr/bin/systemctl"
}

# make_root ROOT STATUS: a root with a shell and a broker. Without a broker if STATUS is 127.
make_root() {
    local root=$1 status=$2 library
    mkdir -p "$root"/{bin,dev,usr/bin,var/log,tmp}
    : >"$root/dev/null"
    cp "$(realpath /bin/sh)" "$root/bin/sh"
    while read -r library; do
        install -D "$library" "$root$library"
    done < <(ldd "$root/bin/sh" | grep -o '/[^ ]*')
    [ "$status" -eq 127 ] || make_broker "$root" "$status"
}

# broker_was_called ROOT stage|unstage|nothing WHEN: compares the calls of the broker's tools since the last comparison.
broker_was_called() {
    local expected=
    case $2 in
    stage) expected="sfcbunstage -n root/tavkit/as -r TAVStorageProvider.reg TAV_Storage.mof
sfcbstage -n root/tavkit/as -r SCHEMA/TAVStorageProvider.reg SCHEMA/TAV_Storage.mof
sfcbrepos -f" ;;
    unstage) expected="sfcbunstage -n root/tavkit/as -r TAVStorageProvider.reg TAV_Storage.mof
sfcbrepos -f" ;;
    esac
    same "calls of the broker's tools at $3" "$expected" \
        "$(sed 's,/usr/libexec/tavstrg/../../share/tavstrg/schema,SCHEMA,g' "$1/var/log/broker" 2>/dev/null || true)"
    rm -f "$1/var/log/broker"
}

# Everything in a root but the package database and logs.
everything_in() {
    find "$1" -path "$1/var/lib" -prune -o -path "$1/var/log" -prune -o -printf '%M %U:%G %P %l\n' | sort -k 3
}

# Installed binaries must not contain build paths or debug information, or search for libraries in other directories.
check_binaries() {
    local root=$1 file runpath
    if grep -rlF -e "$build" -e "$source_directory" "$root/usr"; then
        fail "these files contain build paths"
    fi
    while read -r file; do
        file -b "$file" | grep '^ELF' >/dev/null || continue
        ! readelf -SW "$file" | grep -E '\.(debug_info|symtab)' >/dev/null || fail "$file is not stripped"
        runpath=$(readelf -dW "$file" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p')
        case $file in
        */sbin/tavstrg) same "run path of the tool" "\$ORIGIN/../lib/tavstrg" "$runpath" ;;
        *) same "run path of $file" "" "$runpath" ;;
        esac
    done < <(find "$root/usr" -type f)
}

# check_tool ROOT: the tool installed there finds its libraries, the machines and the provider.
check_tool() {
    local tool=$1/usr/sbin/tavstrg machine output
    for machine in "$1"/usr/share/tavstrg/machines/*.json; do
        if [ "${machine##*/}" = today.json ]; then # the provider refuses its kernel
            ! output=$("$tool" --machine "$machine" show 2>&1) || fail "$machine: $output"
            grep -q 'kernel release .* is refused' <<<"$output" || fail "$machine: $output"
            continue
        fi
        output=$("$tool" --machine "$machine" show 2>&1) || fail "$machine: $output"
        grep -q '^Totals$' <<<"$output" || fail "$machine: $output"
    done
    output=$("$tool" check --root "$1/usr/share/doc/tavstrg-provider/examples" 2>&1) || fail "the examples: $output"
    local -a provider
    mapfile -t provider < <(find "$1/usr" -name libTAVStorageProvider.so ! -type l)
    mv "${provider[0]}" "$work/provider.away"
    check_tool_alone "$1"
    mv "$work/provider.away" "${provider[0]}"
    output=$(find "$1/usr" -path "*/sfcb/libTAVStorageProvider.so" -exec cmp "${provider[0]}" {} \; 2>&1)
    same "the provider where SFCB looks" "" "$output"
}

# check_tool_alone ROOT: without a provider it shows the disks, and where it looked for one.
check_tool_alone() {
    local tool=$1/usr/sbin/tavstrg output
    local -a machine=(--machine "$1/usr/share/tavstrg/machines/server.json")
    for output in "disks" "health" "metrics" "report -"; do
        # shellcheck disable=SC2086 # words
        "$tool" "${machine[@]}" $output >"$work/output" 2>&1 || fail "tavstrg $output without a provider: $(cat "$work/output")"
    done
    ! output=$("$tool" "${machine[@]}" show 2>&1) || fail "the tool found a provider in another directory"
    grep -qF "no provider found" <<<"$output" || fail "without its provider the tool says $output"
    grep -qE "$1/usr/lib(64)?/sfcb/libTAVStorageProvider.so" <<<"$output" || fail "the tool does not look where SFCB does: $output"
}
