#!/usr/bin/env bash
# The .rpm packages: what they say of themselves, and that they install, work, and go without a trace.
#
# usage: rpm_test.sh BUILD_DIRECTORY
[ "$(id -u)" -eq 0 ] || exec unshare --map-root-user "$0" "$@" # who is not root becomes it in a name space
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
    same "what others may want of $name" "$name" "$(ask --provides "${file[$name]}" | sed 's/[ (].*//' | sort -u)"
    same "tool of others in $name" "" "$(ask --requires "${file[$name]}" | grep '^libtav' || true)"
done
same "what the tool wants besides" "tavstrg-devel-agent = $version
tavstrg-provider = $version" "$(ask --requires "${file[tavstrg]}" | grep '^tavstrg')"
ask --requires "${file[tavstrg-provider]}" | grep '^libc\.so\.6' >/dev/null || fail "the provider does not want the C library"

for pair in provider:tavstrg-provider tools:tavstrg agent:tavstrg-devel-agent; do
    listed=$(ask --qf '[%{FILEMODES:perms} %{FILEUSERNAME}/%{FILEGROUPNAME} %{FILENAMES}\n]' "${file[${pair#*:}]}")
    same "owners and kinds in ${pair#*:}" "" "$(grep -vE '^[d-]r[w-][x-]r-[x-]r-[x-] root/root /usr/' <<<"$listed" || true)"
    same "directories of others in ${pair#*:}" "" "$(grep '^d' <<<"$listed" | grep -vE '/(tavstrg[a-z-]*|sfcb)(/|$)' || true)"
    same "modes of libraries in ${pair#*:}" "" "$(grep '\.so$' <<<"$listed" | grep -v '^-rwxr-xr-x' || true)"
    files=$(awk '/^-/ { print ($1 ~ /x/ && $3 !~ /\.so$/ ? 755 : 644), $3 }' <<<"$listed" |
        sed 's,/usr/,,; s,machines/.*,machines/*.json,; s,lib64/sfcb,lib/sfcb,' | sort -u -k 2)
    same "files of ${pair#*:}" "$(expected_files "${pair%:*}")" "$files"
done
[ "$(getconf LONG_BIT)" != 64 ] || ask -l "${file[tavstrg-provider]}" | grep '^/usr/lib64/sfcb/lib' >/dev/null ||
    fail "the provider is not where brokers of such systems look"

root=$work/root
make_root "$root" 0
# What belongs to the system's own packages, and what rpm makes for itself.
mkdir -p "$root"/{usr/{sbin,lib,lib64,libexec,share/{bash-completion/completions,doc,man/{man5,man8},zsh/site-functions}},var/tmp}
before=$(everything_in "$root")
# Without dependencies: the database of this system is another, so this one knows no library.
in_root() {
    rpm --root "$root" --dbpath /var/lib/rpm --nodeps "$@" >"$work/log" 2>&1 || fail "rpm $*: $(cat "$work/log")"
}
in_root -i "${file[@]}"
broker_was_told "$root" stage "the installation"
check_binaries "$root"
check_tool "$root"
in_root -U --replacepkgs "${file[tavstrg-provider]}"
broker_was_told "$root" stage "a second installation"
in_root -e "${!file[@]}"
broker_was_told "$root" unstage "the end"
same "what is left" "$before" "$(everything_in "$root")"
