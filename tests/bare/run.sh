#!/usr/bin/env bash
# Builds and tests the work tree in a bare Debian 12 as a newcomer does, makes the packages there, and installs and removes
# them in another bare Debian 12 through apt.
#
# usage: tests/bare/run.sh [--all] [--packages DIR] [--fresh] [--keep]
#
#   --all            runs ./test.sh --all there, not ./test.sh --quick
#   --packages DIR   build nothing: only install and remove the .deb packages that are in DIR
#   --fresh          begin with new bare systems and an empty package cache, not with those of an earlier run
#   --keep           keep the systems in build/bare to look at
#
# Systems, packages and logs are in build/bare, below the work tree. Needs root, debootstrap (scripts/install-deps.sh bare)
# and the network. Exit status: 0 all went well; 1 something did not; 77 it cannot run here.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cache=$(realpath -m "$here/../../build/bare")
readonly here cache

tests=(./test.sh --quick) packages='' fresh=false keep=false
while [ $# -gt 0 ]; do
    case $1 in
    --all) tests=(./test.sh --all) ;;
    --packages)
        packages=$(cd "${2:?--packages needs a directory}" && pwd) || exit 2
        shift
        ;;
    --fresh) fresh=true ;;
    --keep) keep=true ;;
    -h | --help)
        sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
        exit 0
        ;;
    *)
        echo "run.sh: unknown argument \"$1\" (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done

# shellcheck source=tests/bare/root.sh
. "$here/root.sh"
can_run
mkdir -p "$cache"
# shellcheck source=tests/packaging/common.sh
. "$here/../packaging/common.sh" "$cache"
umask 022 # as a newcomer's
# shellcheck source=tests/bare/newcomer.sh
. "$here/newcomer.sh"
# shellcheck source=tests/bare/installed.sh
. "$here/installed.sh"
trap clean_up EXIT
trap 'exit 1' INT TERM HUP

prepare
make_pristine
if [ -z "$packages" ]; then
    newcomer "$cache/newcomer" "${tests[@]}"
    packages=$cache/packages
fi
installed "$cache/installed" "$packages"
say "all went well"
