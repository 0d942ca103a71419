#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy (tests/.clang-tidy for tests). Prints the findings; exits non-zero if there are
# any. A file without findings is checked again only if it, or a file that it includes, has changed.
#
#   scripts/check-tidy.sh            the provider
#   scripts/check-tidy.sh --all      tools, tests and benchmarks too
#   scripts/check-tidy.sh FILE...    these .cpp files
#   scripts/check-tidy.sh --quick    without the analyzer, which takes half of the time; may be combined with the others
#   scripts/check-tidy.sh --again    checks unchanged files too; may be combined with --all or FILE
#
# One file per processor at a time. Keeps its compile commands, and the list of files without findings, in build/tidy.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

usage() { sed -n '2,11s/^# \{0,1\}//p' "$0"; }
fail() {
    echo "check-tidy.sh: $*" >&2
    exit 2
}

all=false
again=false
quick=()
files=()
while [ $# -gt 0 ]; do
    case $1 in
    --all) all=true ;;
    --again) again=true ;;
    --quick) quick=(--checks=-clang-analyzer-*) ;; # added to those of the configuration
    -h | --help)
        usage
        exit 0
        ;;
    -*) fail "unknown option '$1' (try --help)" ;;
    *)
        [[ $1 == *.cpp && -f $1 ]] || fail "'$1' is not a .cpp file"
        files+=("$(realpath --relative-to=. "$1")")
        ;;
    esac
    shift
done
if $all; then
    [ ${#files[@]} -eq 0 ] || fail "use --all or files, not both"
    mapfile -t files < <(find src tools tests bench -name '*.cpp')
elif [ ${#files[@]} -eq 0 ]; then
    mapfile -t files < <(find src -name '*.cpp' ! -name '*_test.cpp')
fi
# The largest first, so that no large file runs alone at the end.
mapfile -t files < <(ls -S -- "${files[@]}")

scripts/install-deps.sh build clang check || exit
out=$PWD/build/tidy
mkdir -p "$out"

# configure PRESET DIRECTORY: writes compile commands for each source alone, without precompiled headers, which exist only after a
# build.
configure() {
    cmake --preset "$1" -B "$2" -DTAV_BATCHES=OFF -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >"$2.configure.log" 2>&1 || {
        cat "$2.configure.log"
        exit 1
    }
}

# Fuzz targets have their own build.
fuzz_targets=()
generated=()
for file in "${files[@]}"; do
    case $file in
    tests/fuzz/*) fuzz_targets+=("$file") ;;
    tests/cmpi_abi/*) generated=(cmpi_abi_checks) ;;
    esac
done
configure clang "$out"
[ ${#fuzz_targets[@]} -eq 0 ] || configure fuzz "$out/fuzz"
[ ${#generated[@]} -eq 0 ] || cmake --build "$out" --target "${generated[@]}" -- --quiet || exit

database_of() {
    case $1 in
    tests/fuzz/*) echo "$out/fuzz" ;;
    *) echo "$out" ;;
    esac
}
known=()
for file in "${files[@]}"; do
    if grep -qF "\"file\": \"$PWD/$file\"" "$(database_of "$file")/compile_commands.json"; then
        known+=("$file")
    elif $all; then
        echo "check-tidy: skipped $file, which belongs to no target"
    else
        fail "$file belongs to no target, so its compile command is unknown"
    fi
done

# A result is valid for the same checks, the same clang-tidy and the same compiler flags.
key=$({
    cat .clang-tidy ./*/.clang-tidy "$0"
    clang-tidy --version
    echo "${quick[@]}"
    sed -nE 's/^ *"command": "(.*) -o .*/\1/p' "$out"/compile_commands.json "$out"/fuzz/compile_commands.json 2>/dev/null | sort -u
} | sha256sum | cut -c1-16)
clean=$out/clean/$key
if $again; then
    rm -rf "$clean"
fi
find "$out/clean" -mindepth 1 -maxdepth 1 ! -name "$key" -exec rm -rf {} + 2>/dev/null
found=$(mktemp -d)
trap 'rm -rf "$found"' EXIT

# check FILE: writes its findings to $found, or the list of its includes to $clean if there are none.
check() {
    local file=$1 includes=$clean/$1 name=${1//\//,} options=() before=()
    read -ra options <<<"$quick_options"
    if [ -e "$includes" ]; then
        mapfile -t before <"$includes"
        [ -n "$(find "$file" "${before[@]}" -newer "$includes" 2>&1)" ] || return 0
    fi
    rm -f "$includes"
    mkdir -p "${includes%/*}"
    : >"$found/$name.started"
    case $file in
    *_test.cpp) options+=(--config-file=tests/.clang-tidy) ;;
    esac
    if clang-tidy -p "$(database_of "$file")" --quiet --extra-arg=-H "${options[@]}" "$file" \
        >"$found/$name.out" 2>"$found/$name.err"; then
        sed -nE 's/^\.+ //p' "$found/$name.err" >"$includes"
        touch -r "$found/$name.started" "$includes" # a file changed in the meantime is newer
    elif ! grep -qE ': (warning|error): ' "$found/$name.out"; then
        echo "$PWD/$file:1:1: error: clang-tidy failed: $(grep -vE '^\.+ ' "$found/$name.err" | tail -n 3)" >>"$found/$name.out"
    fi
}
export -f check database_of
export out clean found quick_options="${quick[*]}"

# shellcheck disable=SC2016 # $1 is the inner shell's
printf '%s\n' "${known[@]}" | xargs -d '\n' -n 1 -P "$(nproc)" bash -c 'check "$1"' check

# A finding has several lines. One in a header is reported once for every file that includes it.
findings=$(find "$found" -name '*.out' -exec cat {} + | sed "s,$PWD/,,g" |
    awk '/: (warning|error): /{ if (one) print one; one = $0; next } one { one = one "\1" $0 } END { if (one) print one }' |
    sort -u)
if [ -n "$findings" ]; then
    tr '\1' '\n' <<<"$findings"
    echo "check-tidy: $(wc -l <<<"$findings") finding(s)" >&2
    exit 1
fi
echo "check-tidy: ${#known[@]} files, no findings"
