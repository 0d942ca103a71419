#!/usr/bin/env bash
# Builds the provider and its tool, and shows the storage inventory of a machine as a tree.
#
# usage: ./run.sh [--real] [-- ARGUMENT...]
#
#   ./run.sh                     the simulated machine of examples/machines/server.json
#   ./run.sh --real              this machine; needs root or sudo
#   ./run.sh -- enum HardDisk    another command of the tool (./run.sh -- --help)
#
# Missing packages are installed first (Debian 12). If the agent is not installed, --real creates its directories with
# development libraries, a list of the drivers found, and an options.inf that switches everything on. Existing files are not
# changed.
set -euo pipefail
cd "$(dirname "$0")"

readonly machine=examples/machines/server.json
readonly bin=build/release/bin lib=build/release/lib
readonly agent_conf=/etc/tavkit/tavkit.conf agent_root=/opt/qlm/tavkit_sa

fail() {
    echo "run.sh: $*" >&2
    exit 1
}

say() {
    echo "run.sh: $*" >&2
}

real=false
arguments=(show)
while [ $# -gt 0 ]; do
    case $1 in
    --real) real=true ;;
    --)
        shift
        [ $# -eq 0 ] || arguments=("$@")
        break
        ;;
    -h | --help)
        sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
        exit 0
        ;;
    *)
        echo "run.sh: unknown argument \"$1\" (see ./run.sh --help)" >&2
        exit 2
        ;;
    esac
    shift
done

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    as_root=(sudo)
fi

# Standard output belongs to the tool.
build() {
    scripts/install-deps.sh build
    cmake --preset release
    cmake --build --preset release --target "$@"
} >&2

# Prints the names of the host adapters' drivers, one per line. Leaves out those that the provider never manages: USB adapters,
# names that begin like a directory of the kernel's own, and adapters without a name.
drivers_found() {
    local file name
    for file in /sys/class/scsi_host/*/proc_name; do
        [ -r "$file" ] || continue
        name=$(tr -d ' ' <"$file")
        case $name in
        '' | '(null)' | '<NULL>' | scsi* | iscsi* | sg* | usb* | ovfx2* | hub*) ;;
        *) echo "$name" ;;
        esac
    done | sort -u
}

# Succeeds if a driver has a disk that is not an ATA disk. Such a disk has no ATA identity with a serial number, and one managed
# disk without it fails the whole inventory.
has_other_disks() {
    local host device type vendor
    for host in /sys/class/scsi_host/*; do
        [ "$(tr -d ' ' <"$host/proc_name" 2>/dev/null)" = "$1" ] || continue
        for device in /sys/bus/scsi/devices/"${host##*/host}":*; do
            [ -r "$device/type" ] || continue
            type=$(tr -d ' ' <"$device/type")
            vendor=$(tr -d ' ' <"$device/vendor")
            if [ "$type" = 0 ] && [ "$vendor" != ATA ]; then
                return 0
            fi
        done
    done
    return 1
}

# Succeeds if the provider keeps disks that are not ATA disks in its inventory.
has_any_disk_managed() {
    grep -qsE '^[[:blank:]]*(all|disk-identity)([[:blank:]#]|$)' "$agent_root/data/options.inf"
}

storage_inf() {
    local driver
    echo "# Drivers of the host adapters whose devices are in the inventory, one per line."
    while read -r driver; do
        if ! has_any_disk_managed && has_other_disks "$driver"; then
            echo "# $driver    # has disks that are not ATA disks: managing it without disk-identity in options.inf would fail the inventory"
        else
            echo "$driver"
        fi
    done < <(drivers_found)
}

options_inf() {
    echo "# Everything beyond the base system is on. Remove this file for the base system alone; see options.inf(5)."
    echo "all"
}

# Writes standard input to a file, unless the file exists.
make_file() {
    if [ -e "$1" ]; then
        cat >/dev/null
        say "$1 exists and is not changed"
    else
        "${as_root[@]}" tee "$1" >/dev/null
        say "created $1"
    fi
}

prepare_agent() {
    local directory library
    if [ -e "$agent_conf" ]; then
        say "the agent is installed ($agent_conf): nothing to prepare"
        return
    fi
    for directory in lib data work; do
        if [ ! -d "$agent_root/$directory" ]; then
            "${as_root[@]}" install -d -m 755 "$agent_root/$directory"
            say "created $agent_root/$directory"
        fi
    done
    for library in libtavlog.so libtavalert.so; do
        make_file "$agent_root/lib/$library" <"$lib/$library"
    done
    [ -e "$agent_root/data/options.inf" ] || say "switching on everything beyond the base system (options.inf: all)"
    options_inf | make_file "$agent_root/data/options.inf"
    storage_inf | make_file "$agent_root/data/storage.inf"
}

if $real; then
    [ ${#as_root[@]} -eq 0 ] || command -v sudo >/dev/null || fail "--real needs root"
    build tavstrg tavlog tavalert
    prepare_agent
    exec "${as_root[@]}" "$bin/tavstrg" "${arguments[@]}"
fi
build tavstrg
exec "$bin/tavstrg" --machine "$machine" "${arguments[@]}"
