#!/usr/bin/env bash
# Every *_test.cpp of the source tree is compiled into a program of the build.
#
# usage: orphans_test.sh BUILD_DIRECTORY
set -euo pipefail
source_directory=$(cd "$(dirname "$0")/../.." && pwd)
commands=$1/compile_commands.json

# compiled: the files with a compile command, and those included by a batch of test sources.
compiled() {
    sed -nE 's|^ *"file": "(.*)".*|\1|p' "$commands" | while read -r file; do
        case $file in
        */Unity/unity_*) sed -nE 's|^#include "(.*)"|\1|p' "$file" ;;
        *) echo "$file" ;;
        esac
    done
}

# orphans: test sources that are not among the files of standard input.
orphans() {
    comm -23 <(cd "$source_directory" && find src tools tests bench -name '*_test.cpp' | sort) \
        <(sed -n "s|^$source_directory/||p" | sort -u)
}

found=$(compiled | orphans)
if [ -n "$found" ]; then
    printf 'no program contains\n%s\n' "$found" >&2
    exit 1
fi

# The check itself: a test source that is not compiled is reported.
one=$(cd "$source_directory" && find src -name '*_test.cpp' | sort | head -n 1)
found=$(compiled | grep -vxF "$source_directory/$one" | orphans)
if [ "$found" != "$one" ]; then
    echo "without $one, the check finds: ${found:-nothing}" >&2
    exit 1
fi
