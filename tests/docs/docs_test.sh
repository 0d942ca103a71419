#!/usr/bin/env bash
# The pages say what is so: what they quote stands in the tree.
#
# usage: docs_test.sh links|quotes|events|fields|itself SOURCE_DIRECTORY
#
#   links    relative links of every page lead to a file, and to a heading of it
#   quotes   what SECURITY.md, docs/OPERATIONS.md and docs/ARCHITECTURE.md have in backquotes: a text of the provider or
#            the tool, a file, a function (file.cpp:function) or a test (Suite.Test); what is others' stands in foreign.txt
#   events   the alert catalogue of docs/OPERATIONS.md has the events of the code, with their severities
#   fields   docs/SIMULATOR.md has the fields of a machine's description, and no others in its tables
#   itself   these checks find what is wrong in the pages of tests/docs/wrong
set -euo pipefail

check=$1
tree=$(cd "$2" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly check tree here

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
problems=0

problem() {
    printf '%s\n' "$*" >&2
    problems=$((problems + 1))
}

# pages: every page of the tree but those that are wrong on purpose and those of others.
pages() {
    find "$tree" -mindepth 1 -type d \( -name '.*' -o -name 'build*' -o -path '*/tests/docs/wrong' \) -prune -o \
        -name '*.md' -print | sort
}

# anchors PAGE: its headings, as links name them.
anchors() {
    awk '/^```/ { fenced = !fenced } !fenced && /^#+ / { sub(/^#+ /, ""); print }' "$1" | tr '[:upper:]' '[:lower:]' |
        sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

# plain PAGE: without its fenced blocks, in one line.
plain() {
    awk '/^```/ { fenced = !fenced; next } !fenced' "$1" | tr '\n' ' '
}

check_links() {
    local page link file anchor
    for page in "$@"; do
        while read -r link; do
            case $link in
            http://* | https://* | mailto:*) continue ;;
            esac
            file=${link%%#*}
            anchor=
            [[ $link != *'#'* ]] || anchor=${link#*#}
            file=${file:+$(dirname "$page")/$file}
            file=${file:-$page}
            if [ ! -e "$file" ]; then
                problem "$page: $link leads nowhere"
            elif [ -n "$anchor" ] && ! anchors "$file" | grep -qxF -- "$anchor"; then
                problem "$page: $link: there is no such heading"
            fi
        done < <(plain "$page" | grep -oE '\]\([^) ]+\)' | sed 's/^](//; s/)$//')
    done
}

# Values in a quoted trace line stand where the format has its conversions: [28] for [%d], (x.so) for (%s).
without_values() {
    sed -E 's/\[[^]]*\]/[]/g; s/\([^)]*\)/()/g'
}
without_conversions() {
    sed -E 's/\[(0x)?%[0-9a-z]*\]/[]/g; s/\(%[a-z]*\)/()/g'
}

# corpus: what is compiled into the provider and the tools, and what is shipped with them.
corpus() {
    find "$tree"/{src,tools,schema,packaging} -type f ! -name '*_test.*' ! -name '*.md' ! -path '*/testing/*'
    ls "$tree"/*.sh
}

# is_true PAGE QUOTE: whether what is quoted is in the tree.
is_true() {
    local page=$1 quote=$2 file name=
    # A test, or a method of a class.
    if [[ $quote =~ ^([A-Za-z0-9_]+)\.([A-Z][A-Za-z0-9_]+)$ ]]; then
        if [[ $quote == TAV_* ]]; then
            grep -qwF -- "${BASH_REMATCH[1]}" "$work/corpus" && grep -qwF -- "${BASH_REMATCH[2]}" "$work/corpus"
        else
            grep -qE "TEST(_F|_P)?\(${BASH_REMATCH[1]}, ${BASH_REMATCH[2]}\)" "$work/tests"
        fi
        return
    fi
    # A function of a file.
    if [[ $quote =~ ^([A-Za-z0-9_./-]+\.(cpp|h|cmake|sh)):([A-Za-z0-9_:-]+)$ ]]; then
        name=${BASH_REMATCH[3]}
        file=$(grep -E "(^|/)${BASH_REMATCH[1]//./\\.}$" "$work/files") || return 1
        [ "$(wc -l <<<"$file")" -eq 1 ] && grep -qwF -- "$name" "$tree/$file"
        return
    fi
    # A file or folder, from the top, from its page, or by its own name; a wildcard may stand in it.
    if compgen -G "$tree/$quote" >/dev/null || compgen -G "$(dirname "$page")/$quote" >/dev/null ||
        grep -qE "(^|/)${quote//./\\.}$" "$work/files" 2>/dev/null; then
        return 0
    fi
    # A file of the agent's root: a library by its name, a key file without the number of its class.
    if [[ $quote =~ ^(lib/|data/|work/)([a-z./_-]+)[0-9]*$ ]]; then
        [ "${BASH_REMATCH[1]}" = lib/ ] || name=${BASH_REMATCH[1]}
        grep -qF -- "$name${BASH_REMATCH[2]}" "$work/corpus" || grep -qF -- "\"${BASH_REMATCH[2]}\"" "$work/corpus"
        return
    fi
    # A command of the tool.
    if [[ $quote =~ ^tavstrg\ (--)?([a-z-]+) ]]; then
        grep -qE -- "add_(subcommand|option|flag)\(\"${BASH_REMATCH[1]}${BASH_REMATCH[2]}\"" "$work/corpus"
        return
    fi
    grep -qF -- "$quote" "$work/corpus" || grep -qF -- "$(without_values <<<"$quote")" "$work/formats"
}

check_quotes() {
    local page quote
    corpus | tr '\n' '\0' | xargs -0 cat >"$work/corpus"
    without_conversions <"$work/corpus" >"$work/formats"
    (cd "$tree" && find . -mindepth 1 -type d \( -name .git -o -name 'build*' \) -prune -o -type f -printf '%P\n') >"$work/files"
    find "$tree"/{src,tools,tests} -name '*_test.cpp' -print0 | xargs -0 grep -hE '^TEST(_F|_P)?\(' >"$work/tests"
    for page in "$@"; do
        while read -r quote; do
            grep -qxF -- "$quote" "$here/foreign.txt" || is_true "$page" "$quote" ||
                problem "$page: nothing in the tree says $quote"
        done < <(plain "$page" | grep -oE "\`[^\`]+\`" | tr -d '`' | sort -u)
    done
}

# Every line of foreign.txt is on a page still.
check_foreign() {
    local text
    : >"$work/pages"
    for text in "$@"; do
        plain "$text" >>"$work/pages"
    done
    while read -r text; do
        grep -qF -- "\`$text\`" "$work/pages" || problem "foreign.txt: no page says $text"
    done <"$here/foreign.txt"
}

# events_of_code, events_of PAGE: "id severity level", the level 0 for an event of another kind.
events_of_code() {
    sed -nE 's/.*TAV_ALERTID_(LIFESPAN_LV([1-5])|[A-Z_]+) = 0x([0-9A-F]+);.*/\3 0\2/p' \
        "$tree/src/monitor/alert.h" | sed -E 's/ 0([1-5])$/ \1/' |
        awk '{ split("4 information 8 warning C error", s); for (i = 1; i < 6; i += 2) severity[s[i]] = s[i + 1]
               print $1, severity[substr($1, 1, 1)], $2 }' | sort
}
events_of() {
    sed -nE 's/^\| 0x([0-9A-F]+) ([^|]*) \| ([a-z]+) \|.*/\1 \3 \2/p' "$1" |
        awk '{ print $1, $2, / level [1-5]$/ ? $NF : 0 }' | sort
}

check_events() {
    diff <(events_of_code) <(events_of "$1") >&2 || problem "$1: these are not the events of the code"
    [ "$(events_of_code | wc -l)" -eq 7 ] || problem "monitor/alert.h: its events are not understood"
}

# fields_of_code: what is asked of a description, and what a fault can be on.
fields_of_code() {
    grep -ohE '"[a-z][A-Za-z0-9]{2,}"' "$tree"/tools/sim/{description,description_device,description_ide,fields}.cpp | tr -d '"' | sort -u
}

check_fields() {
    local field
    while read -r field; do
        grep -qwF -- "$field" "$1" || problem "$1: nothing about the field $field"
    done < <(fields_of_code)
    [ "$(fields_of_code | wc -l)" -ge 80 ] || problem "description.cpp: its fields are not understood"
    while read -r field; do
        grep -qF -- "\"$field\"" "$tree"/tools/sim/*.cpp || problem "$1: there is no field $field"
    done < <(awk -F'|' '/^\| `[a-z]/ { print $2 }' "$1" | grep -oE '[A-Za-z]+' | sort -u)
}

# found N CHECK PAGE: the check finds so many problems in the page.
found() {
    local expected=$1 actual
    shift
    problems=0
    "$@" 2>"$work/said"
    actual=$problems
    problems=$wrong
    if [ "$actual" -ne "$expected" ]; then
        cat "$work/said" >&2
        problem "$* finds $actual problems and not $expected"
    fi
    wrong=$problems
}

case $check in
links)
    mapfile -t all < <(pages)
    [ "${#all[@]}" -ge 10 ] || problem "only ${#all[@]} pages"
    check_links "${all[@]}"
    ;;
quotes)
    quoting=("$tree/SECURITY.md" "$tree/docs/OPERATIONS.md" "$tree/docs/ARCHITECTURE.md")
    check_quotes "${quoting[@]}"
    check_foreign "${quoting[@]}"
    ;;
events) check_events "$tree/docs/OPERATIONS.md" ;;
fields) check_fields "$tree/docs/SIMULATOR.md" ;;
itself)
    wrong=0
    sed 's/pciAddress/pciPlace/' "$tree/docs/SIMULATOR.md" >"$work/wrong-fields.md"
    found 4 check_links "$here/wrong/links.md"
    found 9 check_quotes "$here/wrong/quotes.md"
    found 1 check_events "$here/wrong/events.md"
    found 2 check_fields "$work/wrong-fields.md"
    ;;
*)
    echo "no check is named $check" >&2
    exit 2
    ;;
esac
[ "$problems" -eq 0 ]
