#!/usr/bin/env bash
# scripts/check-floors.sh reports each mistake of the tree tests/rules/wrong, and nothing else.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

# The circle may be reported from either of its files.
found=$("$here/../../scripts/check-floors.sh" "$here/wrong" | sort |
    sed -E '/^circle/s/\.h\>//g; s,^(circle: )(records/two)( -> records/one -> )\2,\1records/one -> \2 -> records/one,')
diff -u --label expected --label reported - <(printf '%s\n' "$found") <<'EXPECTED'
cellar/wine.h: cellar is not a floor
circle: records/one -> records/two -> records/one
records/lost.h:3: attic/box.h is not on a floor
records/up.h:3: store/store.h is above records
EXPECTED
