#!/usr/bin/env bash
# The .rpm packages: their fields, installation, use and complete removal.
#
# usage: rpm_test.sh BUILD_DIRECTORY
[ "$(id -u)" -eq 0 ] || exec unshare --map-root-user "$0" "$@" # a user becomes root in a name space
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/common.sh"

make_packages RPM
ask() { rpm -qp --dbpath "$work/nodatabase" "$@" 2>/dev/null; }
declare -A file=()
for path in "$work"/packages/*.rpm; do
    file[$(ask --qf '%{NAME}' "$path")]=$path
done
same "packages" "tavstrg
tavstrg-devel-agent
tavstrg-provider" "$(printf '%s\n' "${!file[@]}" | sort)"

version=$(ask --qf '%{VERSION}' "${file[tavstrg]}")
for name in "${!file[@]}"; do
    same "head of $name" "$version Apache-2.0 $(uname -m)" "$(ask --qf '%{VERSION} %{LICENSE} %{ARCH}' "${file[$name]}")"
    [[ $(ask --qf '%{SUMMARY}' "${file[$name]}") =~ ^[A-Z].{20,80}$ ]] || fail "summary of $name"
    same "what $name provides to other packages" "$name" "$(ask --provides "${file[$name]}" | grep -v '^config(' | sed 's/[ (].*//' | sort -u)"
    same "required private libraries of $name" "" "$(ask --requires "${file[$name]}" | grep '^libtav' || true)"
done
same "other requirements of the tool" "" "$(ask --requires "${file[tavstrg]}" | grep -E '^(tavstrg|cim)' || true)"
same "broker that the provider requires" "cim-server" "$(ask --requires "${file[tavstrg-provider]}" | grep '^cim')"
ask --requires "${file[tavstrg-provider]}" | grep '^libc\.so\.6' >/dev/null || fail "the provider does not require the C library"

libdir=/usr/lib
[ "$(getconf LONG_BIT)" != 64 ] || libdir=/usr/lib64
for pair in provider:tavstrg-provider tools:tavstrg agent:tavstrg-devel-agent; do
    listed=$(ask --qf '[%{FILEMODES:perms} %{FILEUSERNAME}/%{FILEGROUPNAME} %{FILENAMES}\n]' "${file[${pair#*:}]}")
    links=$(grep '^l' <<<"$listed" | sed 's/.* //' || true)
    listed=$(grep -v '^l' <<<"$listed")
    same "links in ${pair#*:}" "$([ "${pair%:*}" != provider ] || echo "$libdir/sfcb/libTAVStorageProvider.so")" "$links"
    same "owners and kinds in ${pair#*:}" "" "$(grep -vE '^[d-]r[w-][x-]r-[x-]r-[x-] root/root /(usr|etc)/' <<<"$listed" || true)"
    same "directories of other packages in ${pair#*:}" "" "$(grep '^d' <<<"$listed" | grep -vE '/(tavstrg[a-z-]*|sfcb)(/|$)' || true)"
    same "modes of libraries in ${pair#*:}" "" "$(grep '\.so$' <<<"$listed" | grep -v '^-rwxr-xr-x' || true)"
    files=$(awk '/^-/ { print ($1 ~ /x/ && $3 !~ /\.so$/ ? 755 : 644), $3 }' <<<"$listed" |
        sed 's,/usr/,,; s, /etc/, etc/,; s,machines/.*,machines/*.json,; s,lib64/cmpi,lib/sfcb,' | sort -u -k 2)
    same "files of ${pair#*:}" "$(expected_files "${pair%:*}")" "$files"
done
ask -l "${file[tavstrg-provider]}" | grep -x "$libdir/cmpi/libTAVStorageProvider.so" >/dev/null ||
    fail "the provider is not where brokers look"

root=$work/root
make_root "$root" 0
# Directories of the system's own packages, and those that rpm creates.
mkdir -p "$root"/{etc,usr/{sbin,lib/systemd/system,lib64,"${libdir#/usr/}"/cmpi,libexec,share/{bash-completion/completions,doc,man/{man5,man8},zsh/site-functions}},var/tmp}
before=$(everything_in "$root")
# Without dependencies: the database of the new root contains no packages.
in_root() {
    rpm --root "$root" --dbpath /var/lib/rpm --nodeps "$@" >"$work/log" 2>&1 || fail "rpm $*: $(cat "$work/log")"
}
in_root -i "${file[tavstrg]}"
check_tool_alone "$root"
in_root -i "${file[tavstrg-provider]}"
broker_was_called "$root" stage "the installation"
check_tool "$root" # without the development agent
in_root -i "${file[tavstrg-devel-agent]}"
check_binaries "$root"
in_root -U --replacepkgs "${file[tavstrg-provider]}"
broker_was_called "$root" stage "a second installation"
in_root -e "${!file[@]}"
broker_was_called "$root" unstage "the removal"
same "what is left" "$before" "$(everything_in "$root")"

# From the version before.
make_packages RPM before -D CPACK_PACKAGE_VERSION=0.0.9
in_root -i "$work"/before/tavstrg-{provider-,}0.0.9-*.rpm
broker_was_called "$root" stage "the installation of the version before"
in_root -U "${file[tavstrg-provider]}" "${file[tavstrg]}"
broker_was_called "$root" stage "the upgrade"
same "versions after the upgrade" "$version
$version" "$(rpm --root "$root" --dbpath /var/lib/rpm -q --qf '%{VERSION}\n' tavstrg tavstrg-provider)"
check_tool "$root"
in_root -e tavstrg tavstrg-provider
broker_was_called "$root" unstage "the removal of an upgraded package"
same "what is left of an upgraded package" "$before" "$(everything_in "$root")"

# A broker that refuses the schema prevents no installation.
make_broker "$root" 1
in_root -i "${file[tavstrg-provider]}"
grep -q 'the broker refused the schema; to try again:' "$work/log" || fail "no warning: $(cat "$work/log")"
in_root -e tavstrg-provider

# The monitoring service: restarted by an upgrade if it runs; stopped and disabled by the removal, and its metrics go.
make_systemd "$root" other.service
cp -p "$(type -P rm)" "$root/usr/bin/rm"
for library in $(ldd "$root/usr/bin/rm" | grep -o '/[^ ]*'); do
    [ -e "$root$library" ] || install -D "$library" "$root$library"
done
metrics=$root/var/lib/prometheus/node-exporter
mkdir -p "$metrics"
: >"$metrics/tavstrg.prom"
calls() { grep '^systemctl' "$root/var/log/broker" 2>/dev/null || true; }
rm -f "$root/var/log/broker"
in_root -i "$work"/before/tavstrg-0.0.9-*.rpm
same "calls at the installation of the tools" "" "$(calls)"
in_root -U "${file[tavstrg]}"
same "calls at an upgrade" "systemctl daemon-reload
systemctl try-restart tavstrg-monitor.service" "$(calls)"
[ -e "$metrics/tavstrg.prom" ] || fail "an upgrade removes the metrics"
rm -f "$root/var/log/broker"
in_root -e tavstrg
same "calls at the removal" "systemctl --no-reload disable --now tavstrg-monitor.service
systemctl daemon-reload" "$(calls)"
[ ! -e "$metrics/tavstrg.prom" ] || fail "the removal leaves metrics that nobody writes any more"
