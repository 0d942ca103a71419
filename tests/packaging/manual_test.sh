#!/usr/bin/env bash
# The manual pages are well-formed, and tavstrg(8) has every command and option of the tool.
#
# usage: manual_test.sh BUILD_DIRECTORY
# shellcheck source=tests/packaging/common.sh
. "$(dirname "$0")/common.sh"

pages=$build/packaging/man
version=$("$build/bin/tavstrg" --version | sed 's/.* //')
for page in tavstrg.8 tavstrg-monitor.8 storage.inf.5 noscsi.inf.5 tavm2ssd.inf.5 options.inf.5; do
    same "form of $page" "" "$(groff -man -Tutf8 -ww -z "$pages/$page" 2>&1)"
    grep -q "^\.TH .* \"TAVStorageProvider $version\"" "$pages/$page" || fail "version of $page"
    for section in NAME SYNOPSIS DESCRIPTION EXAMPLES FILES "SEE ALSO"; do
        grep -qx "\.SH $section" "$pages/$page" || fail "$page has no $section"
    done
    same "compressed $page" "$(cat "$pages/$page")" "$(gzip -dc "$pages/$page.gz")"
    # References to pages of this project lead to existing pages.
    while read -r name section; do
        [ "$name" = smartctl ] || [ -f "$pages/$name.$section" ] || fail "$page names $name($section)"
    done < <(sed -nE 's/^\.BR ([a-z0-9.]+) \(([0-9])\).*/\1 \2/p' "$pages/$page")
done
for page in storage.inf.5 noscsi.inf.5 tavm2ssd.inf.5 options.inf.5; do
    same "sections of $page" ".SH BAD LINES AND BAD FILES
.SH FORMAT" "$(grep -xE '\.SH (FORMAT|BAD LINES AND BAD FILES)' "$pages/$page" | sort)"
done
grep -qx '\.SH EXIT STATUS' "$pages/tavstrg.8" || fail "tavstrg.8 has no EXIT STATUS"

# The terms that the page describes: the tags of its paragraphs, without fonts and escapes.
described() { # SECTION
    sed -n "/^\.SH $1\$/,/^\.SH /p" "$pages/tavstrg.8" | sed -nE '/^\.TP$/{n;s/^\.[BIR]+ //;s/[",]//g;s/\\-/-/g;p}'
}
all=$("$build/bin/tavstrg" --help-all)
missing() { # WHAT LINES: compares standard input with LINES; none of it may be missing there
    same "$1 that the page lacks" "" "$(grep -vxF -f <(printf '%s\n' "$2") || true)"
}
sed -nE '/^Subcommands:/,$s/^([a-z][a-z-]*)$/\1/p' <<<"$all" |
    missing commands "$(described COMMANDS | grep -oE '^[a-z][a-z-]*')"
sed -nE 's/^ +(-[^ ]+).*/\1/p' <<<"$all" | tr ',' '\n' | sort -u |
    missing options "$({ described COMMANDS; described OPTIONS; } | tr ' ' '\n' | grep '^-')"
