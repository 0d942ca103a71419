#!/usr/bin/env bash
# Installs the packages that building and testing need and that are missing. Debian 12.
#
# usage: scripts/install-deps.sh GROUP... [-- PACKAGE...]
#
# Groups: build (the provider, the tool and the test programs), package (making and inspecting .deb and .rpm packages), test (build,
# package and a JSON Schema checker), clang (the second compiler with its sanitizers), check (formatter and linters), vm (the virtual
# machine of tests/vm), compare (what bench/compare measures the provider against), fleet (Prometheus with promtool, and the node
# exporter), bare (the bare Debian systems of tests/bare).
# Packages after -- are installed as well. Prints what it installs, and nothing if no package is missing; root or sudo is needed
# only to install.
set -euo pipefail

build=(g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev)
package=(dpkg-dev file groff-base rpm zsh)
test=(python3-jsonschema)
clang=(clang libclang-rt-14-dev)
check=(clang-format clang-tidy shellcheck)
vm=(qemu-system-x86 xz-utils)
compare=(smartmontools lsscsi strace)
fleet=(prometheus prometheus-node-exporter)
bare=(debootstrap git wget)

fail() {
    echo "install-deps.sh: $*" >&2
    exit 1
}

installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

wanted=()
while [ $# -gt 0 ]; do
    case $1 in
    build) wanted+=("${build[@]}") ;;
    package) wanted+=("${package[@]}") ;;
    test) wanted+=("${build[@]}" "${package[@]}" "${test[@]}") ;;
    clang) wanted+=("${clang[@]}") ;;
    check) wanted+=("${check[@]}") ;;
    vm) wanted+=("${vm[@]}") ;;
    compare) wanted+=("${compare[@]}") ;;
    fleet) wanted+=("${fleet[@]}") ;;
    bare) wanted+=("${bare[@]}") ;;
    --)
        shift
        wanted+=("$@")
        break
        ;;
    *) fail "unknown group \"$1\" (build, package, test, clang, check, vm, compare, fleet, bare)" ;;
    esac
    shift
done

command -v dpkg-query >/dev/null ||
    fail "this is not a Debian system: install the equivalents of ${wanted[*]}"

missing=()
for package in "${wanted[@]}"; do
    installed "$package" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "missing ${missing[*]}: run it as root, or install sudo"
    as_root=(sudo)
fi

echo "Installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
