#!/usr/bin/env bash
# Every *_test.cpp of the source tree is compiled into a program of the build.
#
# usage: orphans_test.sh BUILD_DIRECTORY
set -euo pipefail
source_directory=$(cd "$(dirname "$0")/../.." && pwd)
commands=$1/compile_commands.json

# orphans: test sources without a compile command among those of standard input.
orphans() {
    comm -23 <(cd "$source_directory" && find src tools tests bench -name '*_test.cpp' | sort) \
        <(sed -nE "s|^ *\"file\": \"$source_directory/(.*_test\.cpp)\".*|\1|p" | sort -u)
}

found=$(orphans <"$commands")
if [ -n "$found" ]; then
    printf 'no program contains\n%s\n' "$found" >&2
    exit 1
fi

# The check itself: without its compile command, a test source is reported.
one=$(cd "$source_directory" && find src -name '*_test.cpp' | sort | head -n 1)
found=$(grep -vF "\"file\": \"$source_directory/$one\"" "$commands" | orphans)
if [ "$found" != "$one" ]; then
    echo "without the command of $one, the check finds: ${found:-nothing}" >&2
    exit 1
fi
