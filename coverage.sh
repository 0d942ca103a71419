#!/usr/bin/env bash
# Reports the lines and branches of the provider that the tests reach, per folder.
#
#   ./coverage.sh            all tests, a table
#   ./coverage.sh --quick    unit tests only
#   ./coverage.sh --html     also every line, in build/coverage/html/index.html
#
# Exits non-zero if a test fails, or if the tests reach less than 95 % of the lines of a folder that docs/COVERAGE.md does not
# explain.
set -euo pipefail
cd "$(dirname "$0")"

least=95
explained=docs/COVERAGE.md

selection=(-LE "long|vm|packaging")
html=()
for option in "$@"; do
    case "$option" in
    --quick) selection=(-L unit) ;;
    --html) html=(--html-details build/coverage/html/index.html) ;;
    -h | --help)
        sed -n '2,9s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "coverage.sh: unknown option '$option' (try --help)" >&2
        exit 2
        ;;
    esac
done

scripts/install-deps.sh build -- gcovr
jobs=$(nproc)
mkdir -p build
cmake --preset coverage >build/coverage.configure.log 2>&1 || {
    cat build/coverage.configure.log
    exit 1
}
cmake --build --preset coverage -j "$jobs" -- --quiet
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -j "$jobs" "${selection[@]}" >build/coverage.ctest.log 2>&1 || {
    cat build/coverage.ctest.log
    exit 1
}

mkdir -p build/coverage/html
gcovr --root . --filter 'src/' --exclude '.*_test\.(cpp|h)$' --exclude 'src/cmpi/' --exclude-throw-branches \
    --csv build/coverage/files.csv "${html[@]}" build/coverage >/dev/null

# filename,line_total,line_covered,line_percent,branch_total,branch_covered,...
awk -F, -v least="$least" -v explained="$explained" '
    NR > 1 {
        folder = $1
        sub(/\/[^\/]*$/, "", folder)
        lines[folder] += $2; reached[folder] += $3; branches[folder] += $5; taken[folder] += $6
        lines["all"] += $2; reached["all"] += $3; branches["all"] += $5; taken["all"] += $6
    }
    function percent(part, whole) { return whole == 0 ? 100 : 100 * part / whole }
    END {
        while ((getline line < explained) > 0) text = text line "\n"
        printf "%-28s %14s %8s %14s %8s\n", "folder", "lines", "", "branches", ""
        for (folder in lines) {
            share = percent(reached[folder], lines[folder])
            row = sprintf("%-28s %6d of %5d %6.1f %% %6d of %5d %6.1f %%", folder, reached[folder], lines[folder], share,
                          taken[folder], branches[folder], percent(taken[folder], branches[folder]))
            print row | "sort"
            if (share < least && index(text, "`" folder "`") == 0) low = low " " folder
        }
        close("sort")
        if (low != "") {
            printf "coverage.sh: below %d %% of lines and not explained in %s:%s\n", least, explained, low > "/dev/stderr"
            exit 1
        }
    }' build/coverage/files.csv
