# shellcheck shell=bash
# What README.md tells a newcomer to do, on a machine that has nothing. Sourced by run.sh.

# newcomer ROOT TEST-COMMAND...: the packages come into $cache/packages.
newcomer() {
    local root=$1
    shift
    new_root "$root"
    same "what the bare system has" "" "$(in_root "$root" bash -c 'type -P git g++ cmake ninja make sudo; true')"
    copy_sources "$root/work"

    ! in_root "$root" setpriv --reuid 65534 --clear-groups scripts/install-deps.sh build >"$cache/user.log" 2>&1 ||
        fail "packages are installed by nobody"
    grep -q 'run it as root, or install sudo' "$cache/user.log" || fail "nobody is told: $(cat "$cache/user.log")"

    step run "./run.sh on a machine that has nothing" "$root" ./run.sh
    grep -qx Totals "$cache/run.log" || fail "./run.sh shows no tree: $(tail -n 50 "$cache/run.log")"
    same "what is installed when all is there" "" "$(in_root "$root" scripts/install-deps.sh build 2>&1)"

    step test "$*" "$root" "$@"
    grep -xE '[1-9][0-9]* passed, 0 failed' "$cache/test.log" || fail "$* passed nothing (all it said: $cache/test.log)"

    step package "packaging/build.sh" "$root" packaging/build.sh
    rm -rf "$cache/packages"
    cp -r "$root/work/build/packages" "$cache/packages"
}

# What git would take from the work tree, without the files that are removed there.
copy_sources() {
    local file
    git -C "$source_directory" -c safe.directory="$source_directory" ls-files -co --exclude-standard -z |
        while IFS= read -r -d '' file; do
            [ ! -e "$source_directory/$file" ] || printf '%s\0' "$file"
        done >"$work/sources"
    [ -s "$work/sources" ] || fail "git lists no sources"
    tar -C "$source_directory" --null -T "$work/sources" --owner=0 --group=0 -c | tar -C "$1" -xp
}
