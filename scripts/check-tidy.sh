#!/usr/bin/env bash
# Looks for mistakes with clang-tidy, which .clang-tidy tells what to look for (tests/.clang-tidy for tests). Prints what it finds
# and exits non-zero when it finds anything. What was clean is looked at again when it, or a file that it includes, has changed.
#
#   scripts/check-tidy.sh            the provider
#   scripts/check-tidy.sh --all      tools, tests and benchmarks too
#   scripts/check-tidy.sh FILE...    these .cpp files
#   scripts/check-tidy.sh --again    the provider, whatever was clean; goes with --all and FILE too
#
# As many at a time as there are processors. Keeps its compile commands, and what was clean, in build/tidy.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

usage() { sed -n '2,10s/^# \{0,1\}//p' "$0"; }
fail() {
    echo "check-tidy.sh: $*" >&2
    exit 2
}

all=false
again=false
files=()
while [ $# -gt 0 ]; do
    case $1 in
    --all) all=true ;;
    --again) again=true ;;
    -h | --help)
        usage
        exit 0
        ;;
    -*) fail "unknown option '$1' (try --help)" ;;
    *)
        [[ $1 == *.cpp && -f $1 ]] || fail "'$1' is no .cpp file"
        files+=("$(realpath --relative-to=. "$1")")
        ;;
    esac
    shift
done
if $all; then
    [ ${#files[@]} -eq 0 ] || fail "--all or files, not both"
    mapfile -t files < <(find src tools tests bench -name '*.cpp')
elif [ ${#files[@]} -eq 0 ]; then
    mapfile -t files < <(find src -name '*.cpp' ! -name '*_test.cpp')
fi
# The longest first: what is begun last is then soon done.
mapfile -t files < <(ls -S -- "${files[@]}")

scripts/install-deps.sh build clang check || exit
out=$PWD/build/tidy
mkdir -p "$out"

# configure PRESET DIRECTORY: compile commands without precompiled headers, which only a build would make.
configure() {
    cmake --preset "$1" -B "$2" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >"$2.configure.log" 2>&1 || {
        cat "$2.configure.log"
        exit 1
    }
}

# Fuzz targets have a build of their own.
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
        echo "check-tidy: left out $file, which belongs to no target"
    else
        fail "$file belongs to no target: nothing tells how to compile it"
    fi
done

# What was clean stays so for the same checks, the same clang-tidy and the same flags.
key=$({
    cat .clang-tidy ./*/.clang-tidy "$0"
    clang-tidy --version
    sed -nE 's/^ *"command": "(.*) -o .*/\1/p' "$out"/compile_commands.json "$out"/fuzz/compile_commands.json 2>/dev/null | sort -u
} | sha256sum | cut -c1-16)
clean=$out/clean/$key
if $again; then
    rm -rf "$clean"
fi
find "$out/clean" -mindepth 1 -maxdepth 1 ! -name "$key" -exec rm -rf {} + 2>/dev/null
found=$(mktemp -d)
trap 'rm -rf "$found"' EXIT

# check FILE: its findings go to $found, or the list of what it includes to $clean when there are none.
check() {
    local file=$1 includes=$clean/$1 name=${1//\//,} options=() before=()
    if [ -e "$includes" ]; then
        mapfile -t before <"$includes"
        [ -n "$(find "$file" "${before[@]}" -newer "$includes" 2>&1)" ] || return 0
    fi
    rm -f "$includes"
    mkdir -p "${includes%/*}"
    : >"$found/$name.started"
    case $file in
    *_test.cpp) options=(--config-file=tests/.clang-tidy) ;;
    esac
    if clang-tidy -p "$(database_of "$file")" --quiet --extra-arg=-H "${options[@]}" "$file" \
        >"$found/$name.out" 2>"$found/$name.err"; then
        sed -nE 's/^\.+ //p' "$found/$name.err" >"$includes"
        touch -r "$found/$name.started" "$includes" # what was written meanwhile is newer
    elif ! grep -qE ': (warning|error): ' "$found/$name.out"; then
        echo "$PWD/$file:1:1: error: clang-tidy failed: $(grep -vE '^\.+ ' "$found/$name.err" | tail -n 3)" >>"$found/$name.out"
    fi
}
export -f check database_of
export out clean found

# shellcheck disable=SC2016 # $1 is the inner shell's
printf '%s\n' "${known[@]}" | xargs -d '\n' -n 1 -P "$(nproc)" bash -c 'check "$1"' check

# A finding is several lines; one in a header is told by every file that includes it.
findings=$(find "$found" -name '*.out' -exec cat {} + | sed "s,$PWD/,,g" |
    awk '/: (warning|error): /{ if (one) print one; one = $0; next } one { one = one "\1" $0 } END { if (one) print one }' |
    sort -u)
if [ -n "$findings" ]; then
    tr '\1' '\n' <<<"$findings"
    echo "check-tidy: $(wc -l <<<"$findings") finding(s)" >&2
    exit 1
fi
echo "check-tidy: ${#known[@]} files, nothing found"
