#!/usr/bin/env bash
# Prints each include of the provider that runs upwards, each circle of includes, and each folder that is not in the list of
# floors. Prints nothing if all is well.
#
# usage: scripts/check-floors.sh [SOURCE_DIRECTORY]
set -euo pipefail
cd "${1:-$(dirname "$0")/../src}"

# Floors from the roof down, and the parts of a floor from the top down. A file may include files of its own place and of later
# ones. The files of collect itself use its parts; the parts of devcmd and of disks use the files of devcmd and disks itself.
floors='provider classes lifecycle monitor
    collect collect/devices collect/controllers collect/collection collect/ide collect/scsi collect/inf collect/base
    endurance
    disks/current disks/book disks/pass disks/ask disks/find disks/identity disks
    devcmd/smart devcmd/kernel devcmd/transport devcmd
    store records runtime cmpi'

mapfile -t files < <(find . -name '*.cpp' -o -name '*.h' | sed 's,^\./,,' | grep -vE '_test\.(cpp|h)$' | sort)
grep -HnE '^#include "' "${files[@]}" | awk -v floors="$floors" '
BEGIN {
    count = split(floors, name)
    for (i = 1; i <= count; ++i) {
        rank[name[i]] = i
    }
}
function folder(path) {
    sub(/\/[^\/]*$/, "", path)
    return path
}
function visit(place, trail,    edges, n, i) {
    if (state[place] == 1) {
        print "circle: " trail
    }
    if (state[place] > 0) {
        return
    }
    state[place] = 1
    n = split(to[place], edges, " ")
    for (i = 1; i <= n; ++i) {
        visit(edges[i], trail " -> " edges[i])
    }
    state[place] = 2
}
{
    split($0, part, ":")
    file = part[1]
    included = $0
    sub(/^[^"]*"/, "", included)
    sub(/".*/, "", included)
    from = folder(file)
    if (included !~ /\//) { # only the headers of the CMPI interface include without a folder
        included = from "/" included
    }
    target = folder(included)
    if (!(from in rank)) {
        print file ": " from " is not a floor"
    } else if (!(target in rank)) {
        print file ":" part[2] ": " included " is not on a floor"
    } else if (rank[target] < rank[from]) {
        print file ":" part[2] ": " included " is above " from
    }
    if (from != "cmpi") { # the headers of the interface include each other
        to[file] = to[file] " " included
    }
}
END {
    for (place in to) {
        visit(place, place)
    }
}'
