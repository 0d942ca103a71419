#!/usr/bin/env bash
# The .deb packages: their fields, installation, use and complete removal.
#
# usage: deb_test.sh BUILD_DIRECTORY
[ "$(id -u)" -eq 0 ] || exec unshare --map-root-user "$0" "$@" # a user becomes root in a name space
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/common.sh"
PATH=$PATH:/usr/sbin:/sbin # dpkg requires ldconfig

make_packages DEB
declare -A file=()
for path in "$work"/packages/*.deb; do
    file[$(dpkg-deb -f "$path" Package)]=$path
done
same "packages" "tavstrg
tavstrg-devel-agent
tavstrg-provider" "$(printf '%s\n' "${!file[@]}" | sort)"

# field PACKAGE FIELD; dependencies one a line, those on the C and C++ runtime without their versions.
field() { dpkg-deb -f "${file[$1]}" "$2"; }
depends() { field "$1" Depends | tr ',' '\n' | sed -E 's/^ *//; s/^(libc6|libgcc-s1|libstdc\+\+6) .*/\1/' | sort -u; }

version=$(field tavstrg Version)
for name in "${!file[@]}"; do
    same "version of $name" "$version" "$(field "$name" Version)"
    [[ $(field "$name" Maintainer) =~ ^.+' <'.+@.+'>'$ ]] || fail "maintainer of $name"
    [[ $(field "$name" Description | sed -n 1p) =~ ^[A-Z].{20,80}$ ]] || fail "description of $name"
    [ "$(field "$name" Architecture)" = "$(dpkg --print-architecture)" ] || fail "architecture of $name"
    dpkg-deb --ctrl-tarfile "${file[$name]}" | tar -t | grep '^\./md5sums$' >/dev/null || fail "no checksums in $name"
done
same "runtime of the provider" "" "$(depends tavstrg-provider | grep -vxE 'libc6|libgcc-s1' || true)"
same "other dependencies of the tool" "" "$(depends tavstrg | grep -vxE 'libc6|libgcc-s1|libstdc\+\+6' || true)"
same "scripts" "-rwxr-xr-x root/root ./postinst
-rwxr-xr-x root/root ./prerm" \
    "$(dpkg-deb --ctrl-tarfile "${file[tavstrg-provider]}" | tar -tv | grep -E 'p(re|ost)(inst|rm)$' |
        awk '{ print $1, $2, $6 }' | sort -k 3)"

# The same files as from cmake --install, owned by root, in directories that everybody may read.
for pair in provider:tavstrg-provider tools:tavstrg agent:tavstrg-devel-agent; do
    listed=$(dpkg-deb --fsys-tarfile "${file[${pair#*:}]}" | tar -tv)
    same "owners and kinds in ${pair#*:}" "" "$(grep -vE '^[d-]r[w-][x-]r-[x-]r-[x-] root/root ' <<<"$listed" || true)"
    same "directories of ${pair#*:}" "" "$(grep '^d' <<<"$listed" | grep -v '^drwxr-xr-x' || true)"
    files=$(awk '/^-/ { print ($1 ~ /x/ ? 755 : 644), $6 }' <<<"$listed" |
        sed 's,\./usr/,,; s,\./etc/,etc/,; s,machines/.*,machines/*.json,; s,vendor-completions,site-functions,' | sort -u -k 2)
    same "files of ${pair#*:}" "$(expected_files "${pair%:*}")" "$files"
done

# make_database ROOT: a package database with the runtime libraries of this system.
make_database() {
    mkdir -p "$1"/var/lib/dpkg/{info,updates}
    dpkg-query -s libc6 libgcc-s1 libstdc++6 | sed '/^\(Depends\|Conffiles\|Recommends\|Breaks\| \)/d' >"$1/var/lib/dpkg/status"
}
in_root() { # ROOT DPKG-ARGUMENT...: prints the output of dpkg only if it fails
    local root=$1
    shift
    dpkg --root="$root" "$@" >"$work/log" 2>&1 || fail "dpkg $*: $(cat "$work/log")"
}

root=$work/root
make_root "$root" 0
make_database "$root"
before=$(everything_in "$root")
in_root "$root" --install "${file[tavstrg]}"
check_tool_alone "$root"
in_root "$root" --install "${file[tavstrg-provider]}"
broker_was_called "$root" stage "the installation"
check_tool "$root" # without the development agent
in_root "$root" --install "${file[tavstrg-devel-agent]}"
in_root "$root" --audit
in_root "$root" --verify
check_binaries "$root"
in_root "$root" --install "${file[tavstrg-provider]}"
broker_was_called "$root" stage "a second installation"
in_root "$root" --purge "${!file[@]}"
broker_was_called "$root" unstage "the removal"
same "what is left" "$before" "$(everything_in "$root")"
same "packages left" "libc6 libgcc-s1 libstdc++6" "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Package} ' | sed 's/ $//')"

# From the version before, whose tool depended on its provider. The schema of that is taken back, and what is installed then is
# what a first installation installs.
make_packages DEB before -D CPACK_PACKAGE_VERSION=0.0.9 -D "CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS=tavstrg-provider (= 0.0.9)" \
    -D CPACK_DEBIAN_TOOLS_PACKAGE_BREAKS=
in_root "$root" --install "${file[tavstrg-provider]}" "${file[tavstrg]}"
first=$(everything_in "$root")
in_root "$root" --purge tavstrg tavstrg-provider
rm -f "$root/var/log/broker"
in_root "$root" --install "$work"/before/tavstrg{-provider,}_*.deb
rm "$root/var/log/broker"
! dpkg --root="$root" --install "${file[tavstrg]}" >"$work/log" 2>&1 || fail "the tool is installed beside an older provider"
in_root "$root" --install "${file[tavstrg-provider]}" "${file[tavstrg]}"
broker_was_called "$root" stage "the upgrade"
in_root "$root" --audit
same "versions after the upgrade" "tavstrg $version installed
tavstrg-provider $version installed" \
    "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Package} ${Version} ${db:Status-Status}\n' 'tavstrg*' | grep -v devel)"
same "what is installed after the upgrade" "$first" "$(everything_in "$root")"
in_root "$root" --purge tavstrg tavstrg-provider
broker_was_called "$root" unstage "the removal of an upgraded package"
same "what is left of an upgraded package" "$before" "$(everything_in "$root")"

# Without a broker, and with one that refuses the schema, installation and removal succeed.
for status in 127 1; do
    root=$work/root$status
    make_root "$root" "$status"
    make_database "$root"
    before=$(everything_in "$root")
    in_root "$root" --install "${file[tavstrg-provider]}"
    warned=$(grep -c 'the broker refused the schema' "$work/log" || true)
    same "warnings with status $status" $((status == 1)) "$warned"
    in_root "$root" --purge tavstrg-provider
    same "what is left with status $status" "$before" "$(everything_in "$root")"
done

# A broker that runs is restarted, whatever its distribution calls its unit.
for unit in sfcb.service sblim-sfcb.service sfcbd.service other.service; do
    root=$work/$unit
    make_root "$root" 0
    make_database "$root"
    make_systemd "$root" "$unit"
    expected="systemctl try-restart $unit"
    [ "$unit" != other.service ] || expected=
    in_root "$root" --install "${file[tavstrg-provider]}"
    same "restart of $unit after the installation" "$expected" "$(grep '^systemctl' "$root/var/log/broker" || true)"
    rm "$root/var/log/broker"
    in_root "$root" --purge tavstrg-provider
    same "restart of $unit after the removal" "$expected" "$(grep '^systemctl' "$root/var/log/broker" || true)"
done

# The monitoring service is enabled, and started where systemd runs; its state and configuration go at the purge.
root=$work/service
make_root "$root" 127
make_database "$root"
make_systemd "$root" other.service
cp -p "$(type -P rm)" "$root/usr/bin/rm"
for helper in deb-systemd-helper deb-systemd-invoke; do
    printf '#!/bin/sh\necho "%s $*" >>/var/log/broker\n' "$helper" >"$root/usr/bin/$helper"
    chmod 755 "$root/usr/bin/$helper"
done
calls() { grep -vE 'was-enabled|try-restart|daemon-reload' "$root/var/log/broker" 2>/dev/null || true; }
in_root "$root" --install "${file[tavstrg-provider]}" "${file[tavstrg]}"
same "calls at the installation" "deb-systemd-helper unmask tavstrg-monitor.service
deb-systemd-helper enable tavstrg-monitor.service
deb-systemd-invoke start tavstrg-monitor.service" "$(calls)"
: >"$root/var/log/broker"
in_root "$root" --install "${file[tavstrg]}"
grep -q 'deb-systemd-invoke restart tavstrg-monitor.service' "$root/var/log/broker" || fail "no restart at an upgrade"
metrics=$root/var/lib/prometheus/node-exporter
mkdir -p "$root/var/lib/tavstrg" "$metrics"
: >"$metrics/tavstrg.prom"
echo "# changed" >>"$root/etc/tavstrg/monitor.conf"
: >"$root/var/log/broker"
in_root "$root" --remove tavstrg
grep -q 'deb-systemd-invoke stop tavstrg-monitor.service' "$root/var/log/broker" || fail "no stop at the removal"
if [ ! -d "$root/var/lib/tavstrg" ] || [ ! -f "$root/etc/tavstrg/monitor.conf" ]; then
    fail "the removal is a purge"
fi
[ ! -e "$metrics/tavstrg.prom" ] || fail "the removal leaves metrics that nobody writes any more"
in_root "$root" --purge tavstrg
if [ -e "$root/var/lib/tavstrg" ] || [ -e "$root/etc/tavstrg" ]; then
    fail "the purge leaves state or configuration"
fi
