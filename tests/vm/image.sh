#!/usr/bin/env bash
# Creates the kernel (Debian's, uncompressed) and the small root file system of the virtual machine.
#
# usage: tests/vm/image.sh CACHE                 downloads Debian's packages, creates CACHE/vmlinux and CACHE/base.cpio
#        tests/vm/image.sh CACHE BUILD INITRAMFS also creates INITRAMFS, with the provider and tools of a build
#
# Installs nothing: packages are downloaded once and unpacked in CACHE. Exit status 77: they cannot be downloaded here.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

readonly cache=${1:?usage: image.sh CACHE [BUILD INITRAMFS]}
readonly packages=$cache/packages unpacked=$cache/unpacked
readonly libraries=usr/lib/x86_64-linux-gnu
readonly tool_packages=(busybox-static lsscsi smartmontools sg3-utils libsgutils2-1.46-2 libcap-ng0 hdparm
    nvme-cli libnvme1 libjson-c5 libdbus-1-3 libssl3
    systemd libsystemd-shared libapparmor1 libip4tc2 libkmod2)
# The tools with whose output the provider's answers are compared.
readonly tools=(usr/bin/lsscsi usr/bin/sg_inq usr/sbin/smartctl usr/sbin/smartd sbin/hdparm usr/sbin/nvme)
# The manager under which the monitoring service runs, and of its units those that the service needs.
readonly manager=(lib/systemd/systemd lib/systemd/systemd-journald bin/systemctl bin/journalctl)
readonly manager_units=(systemd-journald.service systemd-journald.socket systemd-journald-dev-log.socket sysinit.target basic.target
    local-fs.target shutdown.target umount.target)
# In load order, each after its dependencies. ahci comes before the other adapters, so its disks get the first names.
readonly modules=(virtio_pci sd_mod sr_mod sg st ahci virtio_scsi sym53c8xx megaraid_sas mptsas xhci-pci usb-storage uas
    nvme virtio_blk
    scsi_debug target_core_pscsi tcm_loop)

unavailable() {
    echo "image.sh: $*" >&2
    exit 77
}

# --- packages ---------------------------------------------------------------------------------------------------------

# Prints the package of a downloaded kernel, or else of the newest one of this Debian release.
kernel_package() {
    local found
    found=$(find "$packages" -name 'linux-image-*_amd64.deb' -printf '%f\n' | sort -V | tail -n 1)
    if [ -n "$found" ]; then
        echo "${found%%_*}"
    else
        apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/.*Depends: \(linux-image-[0-9][^ ]*\)/\1/p' | head -n 1 ||
            true # no package lists
    fi
}

download() {
    local directory=$packages/new
    rm -rf "$directory"
    mkdir -p "$directory"
    (cd "$directory" && apt-get download -qq "$@") >"$cache/download.log" 2>&1 || return 1
    mv "$directory"/*.deb "$packages"
}

missing_packages() {
    local package
    for package in "$@"; do
        compgen -G "$packages/${package}_*.deb" >/dev/null || echo "$package"
    done
}

fetch() {
    local kernel missing
    kernel=$(kernel_package)
    mapfile -t missing < <(missing_packages "${kernel:-linux-image-amd64}" "${tool_packages[@]}")
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "image.sh: downloading ${missing[*]}" >&2
    if [ -n "$kernel" ] && download "${missing[@]}"; then
        return
    fi
    # The package lists may be missing, or older than the archive.
    if [ "$(id -u)" -eq 0 ]; then
        apt-get update -qq >"$cache/download.log" 2>&1 || true
        kernel=$(kernel_package)
    fi
    [ -n "$kernel" ] || unavailable "no kernel package: the package lists are missing (apt-get update)"
    mapfile -t missing < <(missing_packages "$kernel" "${tool_packages[@]}")
    download "${missing[@]}" || unavailable "cannot download ${missing[*]}: $(tail -n 1 "$cache/download.log")"
}

# --- the part that is the same in every run -----------------------------------------------------------------------

# Extracts the kernel from a bzImage (Debian compresses it with xz), so that the machine need not unpack it at each boot.
extract_kernel() {
    local offset
    offset=$(LC_ALL=C grep -abom1 -P '\xFD7zXZ\x00' "$1" | head -n 1 | cut -d: -f1)
    tail -c "+$((offset + 1))" "$1" | xz -dc 2>/dev/null >"$2" || true # bytes after the compressed data
    [ "$(head -c 4 "$2" | tail -c 3)" = ELF ] || unavailable "no xz-compressed kernel in $1"
}

module_file() {
    find "$unpacked/lib/modules" -name "${1//[-_]/[-_]}.ko" -print -quit
}

# Copies the dependencies of a module, then the module, numbered in load order.
declare -A has_module=()
add_module() {
    local name=${1//-/_} file dependency
    [ -z "${has_module[$name]:-}" ] || return 0
    has_module[$name]=1
    file=$(module_file "$1")
    [ -n "$file" ] || {
        # Built-in modules have no file.
        grep -q "/${1//[-_]/[-_]}\.ko$" "$unpacked"/lib/modules/*/modules.builtin && return 0
        unavailable "the kernel package has no module $1"
    }
    while read -r dependency; do
        add_module "$dependency"
    done < <(tr '\0' '\n' <"$file" | sed -n 's/^depends=//p' | tr ',' '\n' | grep .)
    cp "$file" "$(printf '%s/modules/%03d-%s.ko' "$root" ${#loaded[@]} "$name")"
    loaded+=("$name")
}

# Copies the shared libraries of programs to the directories that the machine's loader searches.
add_libraries() {
    local file
    mkdir -p "$root/lib64" "$root/lib"
    while read -r file; do
        case $file in
        */ld-linux-x86-64.so.2) cp -L "$file" "$root/lib64" ;;
        *) cp -L "$file" "$root/lib" ;;
        esac
    done < <(LD_LIBRARY_PATH=$unpacked/$libraries:$unpacked/lib/x86_64-linux-gnu:$unpacked/$libraries/systemd ldd "$@" |
        sed -nE 's/.*(=> |^\s+)(\/[^ ]+) .*/\2/p' | sort -u)
}

pack() {
    (cd "$root" && find . | "$busybox" cpio -o -H newc) 2>/dev/null
}

make_base() {
    local package tool
    rm -rf "$unpacked" "$root"
    mkdir -p "$unpacked" "$root"/{bin,modules,tools}
    for package in "$packages"/*.deb; do
        dpkg-deb -x "$package" "$unpacked"
    done
    busybox=$unpacked/bin/busybox
    extract_kernel "$(find "$unpacked/boot" -name 'vmlinuz-*' | head -n 1)" "$cache/vmlinux"
    cp "$busybox" "$root/bin/busybox"
    ln -s busybox "$root/bin/sh"
    for tool in "${tools[@]}"; do
        cp "$unpacked/$tool" "$root/tools/${tool##*/}"
    done
    for tool in "${manager[@]}" "${manager_units[@]/#/lib/systemd/system/}"; do
        install -D -m "$(stat -c %a "$unpacked/$tool")" "$unpacked/$tool" "$root/$tool"
    done
    add_libraries "${tools[@]/#/$unpacked/}" "${manager[@]/#/$unpacked/}"
    local loaded=()
    for package in "${modules[@]}"; do
        add_module "$package"
    done
    pack >"$cache/base.cpio"
    cp "$busybox" "$cache/busybox"
    rm -rf "$unpacked" "$root"
}

# --- the project's own part ---------------------------------------------------------------------------------------------

add_build() {
    local build=$1 agent=$root/opt/qlm/tavkit_sa file
    mkdir -p "$root"/{bin,lib,etc/tavkit,test/bin,test/lib} "$agent"/{lib,data,work}
    cp "$here/init" "$root/init"
    cp "$here/oracle.sh" "$root/test/oracle.sh"
    chmod 755 "$root/init" "$root/test/oracle.sh"
    echo "TavDir /opt/qlm/tavkit_sa" >"$root/etc/tavkit/tavkit.conf"
    cp "$build"/bin/{tavstrg,vm_guest} "$root/test/bin"
    install -D -m 644 -t "$root/lib/systemd/system" "$here/../../packaging/monitor/tavstrg-monitor.service"
    install -D -m 644 -t "$root/etc/tavstrg" "$here/../../packaging/monitor/monitor.conf"
    mkdir -p "$root/usr/sbin"
    ln -s /test/bin/tavstrg "$root/usr/sbin/tavstrg"
    for file in compare_real compare_provider compare_discovery; do # if they were built
        [ ! -x "$build/bin/$file" ] || cp "$build/bin/$file" "$root/test/bin"
    done
    cp "$build/lib/libTAVStorageProvider.so" "$root/test/lib"
    cp "$build"/lib/{libtavlog,libtavalert}.so "$agent/lib"
    for file in "$root"/test/bin/* "$root"/test/lib/* "$agent"/lib/*; do
        strip --strip-debug "$file"
    done
    add_libraries "$root"/test/bin/* "$root"/test/lib/* "$agent"/lib/*
}

[ "$(dpkg --print-architecture 2>/dev/null)" = amd64 ] || unavailable "this is not a Debian system for amd64"
command -v xz >/dev/null || unavailable "xz is missing (scripts/install-deps.sh vm)"
mkdir -p "$packages"
root=$(mktemp -d "$cache/root.XXXXXX")
trap 'rm -rf "$root"' EXIT
busybox=$cache/busybox
(
    flock 9
    fetch
    stamp=$(cd "$packages" && ls -- *.deb && sha256sum "$here/image.sh")
    if [ "$stamp" != "$(cat "$cache/stamp" 2>/dev/null)" ]; then
        make_base
        echo "$stamp" >"$cache/stamp"
    fi
) 9>"$cache/lock"
[ $# -gt 1 ] || exit 0
mkdir -p "$root"
add_build "$2"
pack | cat "$cache/base.cpio" - >"$3"
