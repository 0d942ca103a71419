#!/usr/bin/env bash
# The rules of the house that a compiler does not check. Prints each breach as file:line and exits non-zero on any.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

breaches=0
breach() { # rule, matches
    if [ -n "$2" ]; then
        printf 'rule broken: %s\n%s\n' "$1" "$2"
        breaches=$((breaches + 1))
    fi
}

mapfile -t product < <(find src -name '*.cpp' -o -name '*.h' | grep -vE '_test\.(cpp|h)$' | grep -v '^src/cmpi/' | sort)

breach "the provider throws nothing" "$(grep -nE '\bthrow\b' "${product[@]}" | grep -vE '//.*\bthrow\b')"
breach "the provider allocates through memalloc alone" \
  "$(grep -nE 'std::(string|vector|map|unordered_map|list|deque|function|ostringstream|make_unique|make_shared)\b|#include <(string|vector|map|iostream|sstream|functional)>' "${product[@]}")"
breach "no operator new in the provider" "$(grep -nE '\bnew [A-Za-z]' "${product[@]}" | grep -vE '//|\*|"')"
breach "the trace library is called in one place" \
  "$(grep -nE '\b(TraceLog|SetFilePath)\(' "${product[@]}" | grep -v 'tavCommonTrace')"
breach "descriptors and streams belong to owners" \
  "$(grep -nE '(^|[^.>_A-Za-z])(::)?(fclose|close|closedir)\(' "${product[@]}" | grep -vE 'tavCommonHolders|TRACE|//')"
breach "no hook for tests in the provider" "$(grep -nE '#if(def)? .*TEST' "${product[@]}")"

# Include arrows run downwards only.
floor_of() {
    case "$1" in
    cmpi/*) echo 0 ;;
    provider/runtime/*) echo 1 ;;
    store/records/*) echo 2 ;;
    devcmd/*) echo 3 ;;
    monitor/endurance/*) echo 4 ;;
    collect/*) echo 5 ;;
    monitor/*) echo 6 ;;
    store/*) echo 7 ;;
    classes/*) echo 8 ;;
    provider/*) echo 9 ;;
    *) echo -1 ;;
    esac
}
upward=""
while IFS=: read -r file line text; do
    included=$(sed -E 's/.*"([^"]+)".*/\1/' <<<"$text")
    from=$(floor_of "${file#src/}")
    to=$(floor_of "$included")
    if [ "$to" -gt "$from" ] || [ "$to" -lt 0 ]; then
        upward+="$file:$line: $text"$'\n'
    fi
done < <(grep -nE '^#include "' "${product[@]}")
breach "include arrows run downwards (provider, classes, store, monitor, collect, monitor/endurance, devcmd, store/records, provider/runtime, cmpi)" "${upward%$'\n'}"

breach "nothing is left for later" \
  "$(grep -rnE '\b(TODO|FIXME|XXX|HACK)\b' --include='*.cpp' --include='*.h' --include='*.sh' --include='*.md' --include='CMakeLists.txt' . --exclude-dir=build --exclude-dir=.git | grep -v 'scripts/check-rules.sh')"

if command -v clang-format >/dev/null; then
    mapfile -t formatted < <(find src tools tests bench cmake -name '*.cpp' -o -name '*.h' | sort)
    breach "the project's own format (clang-format -i FILE)" \
    "$(clang-format --dry-run "${formatted[@]}" 2>&1 | grep -E 'warning:' | cut -d: -f1 | sort -u)"
fi

if [ "$breaches" -ne 0 ]; then
    echo "check-rules: $breaches rule(s) broken" >&2
    exit 1
fi
echo "check-rules: ${#product[@]} product files, no rule broken"
