#!/usr/bin/env bash
# The pages are true: what they quote, name and link to is in the tree.
#
# usage: docs_test.sh links|quotes|documents|commands|floors|events|fields|itself SOURCE_DIRECTORY
#
#   links    relative links of every page lead to a file, and to a heading of it
#   quotes   what README.md, CONTRIBUTING.md, SECURITY.md and the pages in docs for administrators and developers have in
#            backquotes: a text of the provider or the tool, a file, a function (file.cpp:function), a test (Suite.Test), or a
#            script with its options; texts of other programs are in foreign.txt
#   documents every document that a file of the tree names exists
#   commands the table in README.md has the commands of the tool
#   floors   the first table in docs/ARCHITECTURE.md has the folders of src, in the order of scripts/check-floors.sh
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

# pages: every page of the tree, without those that are wrong on purpose and those in hidden and build directories.
pages() {
    find "$tree" -mindepth 1 -type d \( -name '.*' -o -name 'build*' -o -path '*/tests/docs/wrong' \) -prune -o \
        -name '*.md' -print | sort
}

# anchors PAGE: its headings in the form that links use.
anchors() {
    awk '/^```/ { fenced = !fenced } !fenced && /^#+ / { sub(/^#+ /, ""); print }' "$1" | tr '[:upper:]' '[:lower:]' |
        sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

# plain PAGE: without its fenced blocks, in one line, as if each paragraph and list item had never been wrapped.
plain() {
    awk '/^```/ { fenced = !fenced; next } !fenced { sub(/^ +/, ""); print }' "$1" | tr '\n' ' '
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
                problem "$page: $link does not exist"
            elif [ -n "$anchor" ] && ! anchors "$file" | grep -qxF -- "$anchor"; then
                problem "$page: $link: no such heading"
            fi
        done < <(plain "$page" | grep -oE '\]\([^) ]+\)' | sed 's/^](//; s/)$//')
    done
}

# A quoted trace line has values where the format has conversions: [28] for [%d], (x.so) for (%s).
without_values() {
    sed -E 's/\[[^]]*\]/[]/g; s/\([^)]*\)/()/g'
}
without_conversions() {
    sed -E 's/\[(0x)?%[0-9a-z]*\]/[]/g; s/\(%[a-z]*\)/()/g'
}

# corpus: what is compiled into the provider and the tools, what is shipped with them, and how they are built.
corpus() {
    find "$tree"/{src,tools,schema,packaging,scripts,cmake} -type f ! -name '*_test.*' ! -name '*.md' ! -path '*/testing/*'
    ls "$tree"/*.sh "$tree"/CMakeLists.txt "$tree"/CMakePresets.json
}

# is_command QUOTE: whether it is a script with options that it has, or runs a preset that there is.
is_command() {
    local quote=$1 script word
    if [[ $quote =~ ^(\./)?([A-Za-z0-9_/.-]+\.sh)(\ .*)?$ ]]; then
        script=$tree/${BASH_REMATCH[2]}
        [ -f "$script" ] || return 1
        for word in ${BASH_REMATCH[3]}; do
            [[ $word != --* ]] || grep -qwF -- "$word" "$script" || return 1
        done
        return
    fi
    if [[ $quote =~ (cmake|ctest)\ .*--preset\ ([a-z]+) ]]; then
        grep -qF -- "\"${BASH_REMATCH[2]}\"" "$tree/CMakePresets.json"
        return
    fi
    if [[ $quote =~ ^-D(TAV_[A-Z_]+)= ]]; then
        grep -qwF -- "${BASH_REMATCH[1]}" "$work/corpus"
        return
    fi
    return 1
}

# is_true PAGE QUOTE: succeeds if the quoted text is in the tree.
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
    ! is_command "$quote" || return 0
    # A file or folder, relative to the tree or the page, or by its own name; may contain a wildcard.
    if compgen -G "$tree/$quote" >/dev/null || compgen -G "$(dirname "$page")/$quote" >/dev/null ||
        grep -qE "(^|/)${quote//./\\.}$" "$work/files" 2>/dev/null; then
        return 0
    fi
    # A file of the agent's root: a library by its name, a key file without its class number.
    if [[ $quote =~ ^(lib/|data/|work/)([a-z./_-]+)[0-9]*$ ]]; then
        [ "${BASH_REMATCH[1]}" = lib/ ] || name=${BASH_REMATCH[1]}
        grep -qF -- "$name${BASH_REMATCH[2]}" "$work/corpus" || grep -qF -- "\"${BASH_REMATCH[2]}\"" "$work/corpus"
        return
    fi
    # A command of the tool.
    if [[ $quote =~ ^tavstrg\ (--)?([a-z-]+) ]]; then
        grep -qE -- "(add_(option|flag)\(|\{Command::[a-zA-Z]+, )\"${BASH_REMATCH[1]}${BASH_REMATCH[2]}\"" "$work/corpus"
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
                problem "$page: not found in the tree: $quote"
        done < <(plain "$page" | grep -oE "\`[^\`]+\`" | tr -d '`' | sort -u)
    done
}

# check_documents DIRECTORY: every *.md that is named in a file below it exists, seen from the file, from the top, or by its
# own name. The pages that are wrong on purpose, and what checks them, name others.
check_documents() {
    local file name
    while IFS=: read -r file name; do
        case ${name##*/} in
        NEWS.md | compare.md) continue ;; # CHANGELOG.md as it is installed; a result
        esac
        name=${name#share/doc/tavstrg*/} # as it is installed
        [ -e "$(dirname "$file")/$name" ] || [ -e "$tree/$name" ] ||
            [ -n "$(find "$tree" -name "build*" -prune -o -path "*/$name" -print -quit)" ] ||
            problem "$file: there is no document $name"
    done < <(grep -rHoIE --exclude-dir=.git --exclude-dir='build*' "${@:2}" '[A-Za-z0-9_./-]*[A-Za-z0-9_-]\.md\b' "$1" | sort -u)
}

# Every line of foreign.txt is still used on a page.
check_foreign() {
    local text
    : >"$work/pages"
    for text in "$@"; do
        plain "$text" >>"$work/pages"
    done
    while read -r text; do
        grep -qF -- "\`$text\`" "$work/pages" || problem "foreign.txt: not used on any page: $text"
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
    diff <(events_of_code) <(events_of "$1") >&2 || problem "$1: the events differ from those of the code"
    [ "$(events_of_code | wc -l)" -eq 15 ] || problem "monitor/alert.h: cannot parse its events"
}

# check_commands PAGE: rows that begin with `tavstrg COMMAND are the tool's commands.
check_commands() {
    diff <(sed -nE 's/^ *\{Command::[a-zA-Z]+, "([a-z-]+)",.*/\1/p' "$tree"/tools/tavstrg/*.cpp | sort) \
        <(sed -nE 's/^\| `tavstrg ([a-z-]+).*/\1/p' "$1" | sort) >&2 || problem "$1: these are not the tool's commands"
}

# check_floors PAGE: its first table is the list of floors.
check_floors() {
    diff <(awk "/^floors='/, /'\$/" "$tree/scripts/check-floors.sh" | sed "s/^floors=//; s/'//g" | tr -s ' ' '\n' | grep .) \
        <(awk -F'|' '/^\|/ { print $2; table = 1; next } table { exit }' "$1" | grep -oE "\`[a-z/]+\`" | tr -d '`') >&2 ||
        problem "$1: these are not the floors of the sources"
}

# fields_of_code: the fields of a description, and the places where a fault can be.
fields_of_code() {
    grep -ohE '"[a-z][A-Za-z0-9]{2,}"' "$tree"/tools/sim/{description,description_device,description_ide,fields}.cpp | tr -d '"' | sort -u
}

check_fields() {
    local field
    while read -r field; do
        grep -qwF -- "$field" "$1" || problem "$1: the field $field is missing"
    done < <(fields_of_code)
    [ "$(fields_of_code | wc -l)" -ge 80 ] || problem "description.cpp: cannot parse its fields"
    while read -r field; do
        grep -qF -- "\"$field\"" "$tree"/tools/sim/*.cpp || problem "$1: unknown field $field"
    done < <(awk -F'|' '/^\| `[a-z]/ { print $2 }' "$1" | grep -oE '[A-Za-z]+' | sort -u)
}

# found N CHECK PAGE: requires that the check finds N problems in the page.
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
    quoting=("$tree"/{README,CONTRIBUTING,SECURITY}.md "$tree"/docs/{OPERATIONS,ARCHITECTURE,COVERAGE}.md)
    check_quotes "${quoting[@]}"
    check_foreign "${quoting[@]}"
    ;;
documents) check_documents "$tree" --exclude-dir=wrong --exclude=docs_test.sh ;;
commands) check_commands "$tree/README.md" ;;
floors) check_floors "$tree/docs/ARCHITECTURE.md" ;;
events) check_events "$tree/docs/OPERATIONS.md" ;;
fields) check_fields "$tree/docs/SIMULATOR.md" ;;
itself)
    wrong=0
    sed 's/pciAddress/pciPlace/' "$tree/docs/SIMULATOR.md" >"$work/wrong-fields.md"
    found 4 check_links "$here/wrong/links.md"
    found 9 check_quotes "$here/wrong/quotes.md"
    found 1 check_documents "$here/wrong" --include=documents.md
    found 1 check_commands "$here/wrong/commands.md"
    found 1 check_floors "$here/wrong/commands.md"
    found 1 check_events "$here/wrong/events.md"
    found 2 check_fields "$work/wrong-fields.md"
    ;;
*)
    echo "unknown check $check" >&2
    exit 2
    ;;
esac
[ "$problems" -eq 0 ]
