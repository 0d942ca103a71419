#!/usr/bin/env bash
# Checks the project's rules that a compiler does not check. Prints each violation as file:line; exits non-zero if there is one.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

breaches=0
breach() { # RULE MATCHES: reports the matches, if there are any
    if [ -n "$2" ]; then
        printf 'rule violated: %s\n%s\n' "$1" "$2"
        breaches=$((breaches + 1))
    fi
}

mapfile -t product < <(find src -name '*.cpp' -o -name '*.h' | grep -vE '_test\.(cpp|h)$' | grep -v '^src/cmpi/' | sort)

breach "no exceptions in the provider" "$(grep -nE '\bthrow\b' "${product[@]}" | grep -vE '//.*\bthrow\b')"
breach "the provider allocates through memalloc only" \
  "$(grep -nE 'std::(string|vector|map|unordered_map|list|deque|function|ostringstream|make_unique|make_shared)\b|#include <(string|vector|map|iostream|sstream|functional)>' "${product[@]}")"
breach "no operator new in the provider" "$(grep -nE '\bnew [A-Za-z]' "${product[@]}" | grep -vE '//|\*|"')"
breach "only runtime/trace calls the trace library" \
  "$(grep -nE '\b(TraceLog|SetFilePath)\(' "${product[@]}" | grep -v '^src/runtime/trace\.')"
breach "descriptors and streams are closed by their holders" \
  "$(grep -nE '(^|[^.>_A-Za-z])(::)?(fclose|close|closedir)\(' "${product[@]}" | grep -vE '^src/runtime/holders\.|TRACE|//')"
breach "no test hooks in the provider" "$(grep -nE '#if(def)? .*TEST' "${product[@]}")"

# Includes run downwards only, between floors and inside the two floors that have parts, and never in a circle.
breach "includes run downwards and not in circles (scripts/check-floors.sh)" "$(scripts/check-floors.sh)"

# A helper of tests is in tests/support and has no _test in its name: x_test.cpp holds tests, and includes no other one.
mapfile -t tests < <(find src tools tests bench \( -name '*_test.cpp' -o -name '*_test.h' \) | sort)
breach "a file named _test holds tests (helpers are in tests/support)" "$(grep -LE '^(TEST|TEST_F|TEST_P)\(' "${tests[@]}")"
breach "helpers of unit tests are in tests/support" \
  "$(grep -rlE '#include <g(test|mock)/' --include='*.cpp' --include='*.h' src tools bench | grep -vE '_test\.cpp$')"

breach "no unfinished work" \
  "$(grep -rnE '\b(TODO|FIXME|XXX|HACK)\b' --include='*.cpp' --include='*.h' --include='*.sh' --include='*.md' --include='CMakeLists.txt' . --exclude-dir=build --exclude-dir=.git | grep -v 'scripts/check-rules.sh')"

if command -v clang-format >/dev/null; then
    mapfile -t formatted < <(find src tools tests bench cmake -name '*.cpp' -o -name '*.h' | sort)
    breach "formatted (clang-format -i FILE)" \
    "$(clang-format --dry-run "${formatted[@]}" 2>&1 | grep -E 'warning:' | cut -d: -f1 | sort -u)"
fi

if command -v shellcheck >/dev/null; then
    # Scripts that only others source are checked with those.
    mapfile -t scripts < <(find . \( -path './build*' -o -name .git \) -prune -o -name '*.sh' -perm -u+x -print | sort)
    scripts+=(.ci/run packaging/stage-schema packaging/completion/tavstrg.bash tests/vm/init)
    breach "shellcheck" "$(shellcheck -x -f gcc "${scripts[@]}")"
fi

if [ "$breaches" -ne 0 ]; then
    echo "check-rules: $breaches rule(s) violated" >&2
    exit 1
fi
echo "check-rules: ${#product[@]} product files, no rule violated"
