# shellcheck shell=bash
# Bare Debian 12 roots. Sourced by run.sh, which has set cache, the directory of all that is made.

readonly suite=bookworm pristine=$cache/root.tar
roots=()
inside=

skip() {
    echo "run.sh: skipped: $*" >&2
    exit 77
}

say() { printf '==== %s (after %d s)\n' "$*" "$SECONDS"; }

# Whatever happens: ends what runs in a root, then removes the roots. Mounts belong to what has ended.
clean_up() {
    local status=$?
    trap - EXIT
    if [ -n "$inside" ]; then
        kill -KILL "$inside" 2>/dev/null || true
        wait "$inside" 2>/dev/null || true
    fi
    if $keep; then
        echo "run.sh: kept: ${roots[*]}"
    elif [ ${#roots[@]} -gt 0 ]; then
        rm -rf --one-file-system "${roots[@]}"
    fi
    rm -rf "$work"
    exit $status
}

# apart COMMAND...: with name spaces of its own, which end with this shell, even when it is killed, and with them every mount,
# process and shared memory inside. Beside this shell, so that a signal is heard at once.
apart() {
    local status=0
    setpriv --pdeathsig KILL unshare --mount --pid --ipc --fork --kill-child -- "$@" </dev/null &
    inside=$!
    wait "$inside" || status=$?
    inside=
    return $status
}

# in_root ROOT COMMAND...: in its directory /work, as root, with nothing of this machine but the network, the package cache,
# /proc and terminals: no /sys, no memory in /dev/shm, no locale.
in_root() {
    local root=$1
    shift
    # shellcheck disable=SC2016 # expanded inside
    apart bash -euc '
        root=$1 packages=$2
        shift 2
        mount -t proc proc "$root/proc"
        mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
        mount --bind "$packages" "$root/var/cache/apt/archives"
        chroot "$root" "$@"
    ' bash "$root" "$cache/archives" env -i -C /work "${root_environment[@]}" "$@"
}

# step NAME WHAT ROOT COMMAND...: its output goes to NAME.log. When it fails its end is shown, without what went well in it.
step() {
    local log=$cache/$1.log status=0
    say "$2"
    in_root "${@:3}" >"$log" 2>&1 || status=$?
    [ $status -eq 0 ] || {
        { grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec *$|^\[[0-9]+/[0-9]+\] ' "$log" || true; } | tail -n 200 >&2
        fail "$2: exit status $status of ${*:4} (all it said: $log)"
    }
}

# Prints "URI SUITE" of where this machine has its own Debian packages from; nothing where it is no Debian of this suite.
mirrors() {
    local found
    found=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' 'Component: main' 2>/dev/null |
        grep -E "^https?://[^ ]+ $suite(-updates|-security)?$" | sed 's,/ , ,' | sort -u) || true
    ! grep -q " $suite$" <<<"$found" || echo "$found"
}

# Ends the run where it cannot be.
can_run() {
    [ "$(id -u)" -eq 0 ] || skip "needs root: a Debian root has files of several owners, which a user's name space has not"
    local program
    for program in debootstrap git wget; do
        command -v "$program" >/dev/null || skip "$program is missing (scripts/install-deps.sh bare)"
    done
    unshare --mount --pid --ipc --fork true 2>/dev/null || skip "no name spaces may be made here"
}

# Waits for another run to end, and learns how packages are had here.
prepare() {
    exec 9>"$cache/lock"
    flock 9
    if $fresh; then
        rm -rf "$pristine" "$cache"/{archives,debs}
    fi
    mkdir -p "$cache"/{archives,debs}
    # A device that a root can use: neither a container without the right to make it, nor a file system without devices.
    rm -f "$cache/null"
    { mknod "$cache/null" c 1 3 && true >"$cache/null"; } 2>/dev/null || skip "no devices may be made below $cache"
    rm -f "$cache/null"

    mapfile -t mirrors < <(mirrors)
    [ ${#mirrors[@]} -gt 0 ] || skip "this machine has no packages of Debian $suite"
    read -r mirror _ < <(printf '%s\n' "${mirrors[@]}" | grep " $suite$")
    local name value
    root_environment=(PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb)
    for name in http_proxy https_proxy; do
        value=$(apt-config dump --format '%v' "Acquire::${name%_proxy}::Proxy" 2>/dev/null) || true
        value=${!name:-$value}
        [ -z "$value" ] || export "$name=$value"
    done
    for name in http_proxy https_proxy no_proxy; do
        [ -z "${!name:-}" ] || root_environment+=("$name=${!name}")
    done
    wget -q --tries=2 --timeout=20 -O /dev/null "$mirror/dists/$suite/InRelease" || skip "no network: $mirror cannot be reached"
}

# Makes what every root is unpacked from; a few seconds when there is a tarball of an earlier run.
make_pristine() {
    local root=$cache/pristine
    [ ! -f "$pristine" ] || return 0
    say "making a bare Debian 12"
    roots+=("$root")
    rm -rf --one-file-system "$root"
    apart debootstrap --variant=minbase --cache-dir="$cache/debs" "$suite" "$root" "$mirror" >"$cache/debootstrap.log" 2>&1 || {
        tail -n 50 "$cache/debootstrap.log" "$root/debootstrap/debootstrap.log" >&2 || true
        fail "debootstrap (all it said: $cache/debootstrap.log)"
    }
    rm -rf "$root"/var/{lib/apt/lists,cache/apt/archives}/*
    tar -C "$root" --one-file-system --numeric-owner -cf "$pristine.new" .
    mv "$pristine.new" "$pristine"
    rm -rf --one-file-system "$root"
}

# new_root ROOT: a bare root with the network and the package sources of this machine, and an empty /work.
new_root() {
    local root=$1 uri release
    roots+=("$root")
    rm -rf --one-file-system "$root"
    mkdir -p "$root"
    chmod 755 "$root"
    tar -C "$root" --numeric-owner -xpf "$pristine"
    mkdir "$root/work"
    cat /etc/resolv.conf >"$root/etc/resolv.conf"
    for uri in "${mirrors[@]}"; do
        read -r uri release <<<"$uri"
        echo "deb $uri $release main"
    done >"$root/etc/apt/sources.list"
    apt-config dump 2>/dev/null | grep -E '^Acquire::(Check-|ForceIPv|Retries|http|https)' >"$root/etc/apt/apt.conf.d/90host" || true
    if grep -q 'https:' "$root/etc/apt/sources.list"; then
        install -D -m 644 /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/ca-certificates.crt"
    fi
}
