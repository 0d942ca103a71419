#!/usr/bin/env bash
# Builds a .deb and a .rpm package of each component.
#
# usage: packaging/build.sh [DIRECTORY]
#
# Writes them to DIRECTORY (build/packages by default). Missing build tools are installed first (Debian 12).
set -euo pipefail
case ${1:-} in
-h | --help)
    sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
    exit 0
    ;;
-*)
    echo "build.sh: unknown argument \"$1\" (see packaging/build.sh --help)" >&2
    exit 2
    ;;
esac
root=$(cd "$(dirname "$0")/.." && pwd)
directory=$(realpath -m "${1:-$root/build/packages}")
cd "$root"

scripts/install-deps.sh build package
cmake --preset release
cmake --build --preset release --target TAVStorageProvider tavstrg tavsim tavtrace tavlog tavalert
for generator in DEB RPM; do
    cpack --config build/release/CPackConfig.cmake -G "$generator" -B "$directory"
done
rm -rf "$directory/_CPack_Packages"
