# shellcheck shell=bash
# The .deb packages on a machine that has nothing, by apt and with real dependencies. Sourced by run.sh.

readonly names=(tavstrg tavstrg-devel-agent tavstrg-provider)

# Every file of a root with its mode, owner, link and sum, but what belongs to dpkg, apt, ldconfig and the index of manual pages.
state_of() {
    local -a but=(-path './proc/*')
    local path
    for path in var/lib/{dpkg,apt} var/cache/{apt,ldconfig,man} var/log etc/ld.so.cache work; do
        but+=(-o -path "./$path/*" -o -path "./$path")
    done
    (
        cd "$1"
        find . -xdev \( "${but[@]}" \) -prune -o -printf '%p %M %U:%G %l\n' | sort
        find . -xdev \( "${but[@]}" \) -prune -o -type f -print0 | sort -z | xargs -0 sha256sum
    )
}

# nothing_left ROOT WHEN: as it was, when $work/before was written.
nothing_left() {
    state_of "$1" >"$work/after"
    diff "$work/before" "$work/after" >&2 || fail "what is left after $2 (diff above)"
    same "packages left after $2" "" \
        "$(dpkg-query --admindir="$1/var/lib/dpkg" -W -f '${Package} ${Status}\n' | grep ^tavstrg || true)"
}

apt() { # NAME WHAT ROOT ARGUMENT...
    step "$1" "$2" "$3" env DEBIAN_FRONTEND=noninteractive apt-get -y -q --no-install-recommends "${@:4}"
}

# purge NAME ROOT PACKAGE...: and what came along.
purge() {
    local root=$2
    apt "$1" "apt-get purge" "$root" purge "${@:3}"
    apt "$1-autoremove" "apt-get autoremove" "$root" autoremove --purge
}

# says WHAT PATTERN ROOT COMMAND...: a line of its output is like that.
says() {
    local what=$1 pattern=$2
    shift 2
    in_root "$@" >"$work/output" 2>&1 || fail "$what: exit status $?: $(cat "$work/output")"
    grep -qE "$pattern" "$work/output" || fail "$what: no \"$pattern\" in: $(head -n 50 "$work/output")"
}

# tool_alone ROOT: the package of the tool, beside systemd, on a machine without provider, agent and broker.
tool_alone() {
    local root=$1 command
    local -a tool=(tavstrg --machine /usr/share/tavstrg/machines/server.json)
    apt systemd "systemd, to read the unit" "$root" install systemd
    state_of "$root" >"$work/before"
    apt alone "apt-get install of the tool alone" "$root" install ./tavstrg.deb
    same "packages of the project" "tavstrg installed" \
        "$(in_root "$root" dpkg-query -W -f '${Package} ${db:Status-Status}\n' 'tavstrg*' | grep -v not-installed)"
    says "dpkg" '^0$' "$root" bash -c '{ dpkg --audit && dpkg --verify tavstrg; } | wc -l'
    says "tavstrg disks" '^sda ' "$root" "${tool[@]}" disks
    says "tavstrg health" '^[0-9]+ disks: ' "$root" "${tool[@]}" health
    says "tavstrg metrics" '^tavstrg_disk_health\{' "$root" "${tool[@]}" metrics
    says "tavstrg report" '</html>' "$root" "${tool[@]}" report -
    echo "journal = no" >"$root/work/monitor.conf"
    says "tavstrg monitor --once" 'the last pass took' "$root" "${tool[@]}" monitor --config /work/monitor.conf --once
    [ -e "$root/var/lib/tavstrg/monitor.state" ] || fail "the service has remembered nothing"
    ! command=$(in_root "$root" "${tool[@]}" show 2>&1) || fail "a provider was found"
    grep -qF 'no provider found' <<<"$command" || fail "without a provider the tool says $command"
    says "tavstrg monitor --check" '^/etc/tavstrg/monitor.conf: good$' "$root" tavstrg monitor --check
    says "the unit" '^0$' "$root" bash -c 'systemd-analyze verify tavstrg-monitor.service 2>&1 | tee /dev/stderr | wc -l'
    says "the unit's state" '^enabled$' "$root" systemctl is-enabled tavstrg-monitor.service
    says "man tavstrg-monitor" '^SYNOPSIS$' "$root" man tavstrg-monitor
    purge alone-purge "$root" tavstrg
    nothing_left "$root" "apt-get purge of the tool alone"
}

# installed ROOT PACKAGES
installed() {
    local root=$1 name disks
    local -a tool=(tavstrg --machine /usr/share/tavstrg/machines/server.json)
    new_root "$root"
    for name in "${names[@]}"; do
        cp "$2/${name}"_*.deb "$root/work/$name.deb" || fail "no one package $name in $2"
    done
    step update "package lists" "$root" apt-get -q -o APT::Update::Error-Mode=any update
    apt man "man, to read the pages" "$root" install man-db
    state_of "$root" >"$work/before"

    apt install "apt-get install of all three packages" "$root" install ./{tavstrg-provider,tavstrg,tavstrg-devel-agent}.deb
    say "the tool and its page"
    says "dpkg" '^0$' "$root" bash -c '{ dpkg --audit && dpkg --verify "$@"; } | wc -l' bash "${names[@]}"
    says "tavstrg show" '^Totals$' "$root" "${tool[@]}" show
    disks=$(sed -nE 's/^ +hard disks +([1-9][0-9]*)$/\1/p' "$work/output")
    says "tavstrg enum" '"class": "TAV_StorageHardDisk"' "$root" "${tool[@]}" --json enum HardDisk
    same "hard disks" "$disks" "$(grep -c '"CylindersPerUnit":' "$work/output")"
    says "man tavstrg" '^SYNOPSIS$' "$root" man tavstrg
    says "man storage.inf" '^FORMAT$' "$root" man 5 storage.inf
    purge purge "$root" "${names[@]}"
    nothing_left "$root" "apt-get purge"

    tool_alone "$root"

    make_broker "$root" 0
    state_of "$root" >"$work/before"
    apt broker "apt-get install of the provider beside a broker" "$root" install ./tavstrg-provider.deb
    broker_was_called "$root" stage "apt-get install"
    purge broker-purge "$root" tavstrg-provider
    broker_was_called "$root" unstage "apt-get purge"
    nothing_left "$root" "apt-get purge beside a broker"
}
