#!/usr/bin/env bash
# Boots a virtual machine with a Debian kernel and many kinds of storage, runs the provider in it, and compares its answers with
# the kernel and Debian's tools.
#
# usage: tests/vm/run.sh [--build DIR] [--phases A,B,...] [--keep] [--verbose] [--fetch]
#
#   --build DIR     the build to test (build/release)
#   --phases LIST   only these phases: inventory smart unmanaged failing monitoring hotplug sleeping adapters disks service unit
#                   many; or compare, which is not a test: it measures the cost of the provider and of Debian's tools (./bench.sh
#                   compare --vm)
#   --keep          keep the console, traces, alerts and check results in build/vm/run.* even if all checks passed
#   --verbose       show the machine's console while it runs, and each check
#   --fetch         only download and unpack the packages of the machine
#
# Packages are kept in build/vm, so that only the first run needs the network. Needs qemu-system-x86 and xz-utils
# (scripts/install-deps.sh vm), but not root. Exit status: 0 all checks passed; 1 a check failed or did not run; 77 the machine
# cannot run here.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
readonly here source cache=$source/build/vm
readonly all_phases=inventory,smart,unmanaged,failing,monitoring,hotplug,sleeping,adapters,disks,service,unit,many
# With fewer checks, some did not run. A change to the machine or to the checks changes the number.
readonly all_checks=2791
readonly time_limit=600 # seconds that the machine may run; a busy machine needs half of them

skip() {
    echo "run.sh: skipped: $*" >&2
    exit 77
}

fail() {
    echo "run.sh: $*" >&2
    exit 1
}

build=$source/build/release phases=$all_phases keep=false verbose=false fetch=false
while [ $# -gt 0 ]; do
    case $1 in
    --build) build=$(cd "${2:?--build needs a directory}" && pwd) && shift ;;
    --phases) phases=${2:?--phases needs a list} && shift ;;
    --keep) keep=true ;;
    --verbose) verbose=true ;;
    --fetch) fetch=true ;;
    -h | --help)
        sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
        exit 0
        ;;
    *)
        echo "run.sh: unknown argument \"$1\" (see --help)" >&2
        exit 2
        ;;
    esac
    shift
done

# --- the machine --------------------------------------------------------------------------------------------------------

machine=()
nodes=0
# disk SIZE DEVICE: adds a device with an empty disk of that size, which needs no memory.
disk() {
    nodes=$((nodes + 1))
    machine+=(-blockdev "driver=null-co,node-name=node$nodes,size=$1,read-zeroes=on" -device "$2,drive=node$nodes")
}
adapter() { machine+=(-device "$1"); }

readonly mib=$((1 << 20)) gib=$((1 << 30))
# Six hosts of the chip set's AHCI. All are managed, except the disk of the last one, which noscsi.inf excludes.
disk $((2 * gib)) ide-hd,bus=ide.0,model=M2SSDMODEL-0123456789,serial=M2SSDSER-0123456789X,ver=0001,rotation_rate=1
disk $((512 * mib)) ide-hd,bus=ide.1,model=DISKMODEL-100GB,serial=S1AB2C3D400001,ver=A100
disk $((40 * gib)) ide-hd,bus=ide.2,physical_block_size=4096
adapter ide-cd,bus=ide.3
disk $((3072 * gib)) ide-hd,bus=ide.4,serial=LARGE-0001
disk $((64 * mib)) ide-hd,bus=ide.5,model=UNWATCHED-DISK,serial=UNWATCHED-1
# Managed: a parallel SCSI adapter with a CD-ROM drive, and one without a device.
adapter lsi53c895a,id=parallel
adapter scsi-cd,bus=parallel.0,scsi-id=3
adapter lsi53c810
# Managed only in the phase of all adapters: disks without an ATA identity. One has no serial number, one no world wide name
# either.
adapter virtio-scsi-pci,id=virtio
# Two paths to one disk.
disk $((1 * gib)) scsi-hd,bus=virtio.0,scsi-id=1,vendor=ACME,product=TESTDISK,serial=ACME-0001,wwn=0x5000c500a1b2c3d4
disk $((3 * gib)) scsi-hd,bus=virtio.0,scsi-id=2
adapter megasas,id=raid
disk $((1 * gib)) scsi-hd,bus=raid.0,scsi-id=0,serial=ACME-0001,wwn=0x5000c500a1b2c3d4
disk $((5 * gib)) scsi-hd,bus=raid.0,scsi-id=2,serial=RAID-0002
adapter mptsas1068,id=sas
disk $((2 * gib)) scsi-hd,bus=sas.0,scsi-id=0,serial=SAS-0001,wwn=0x5000c500a1b2c3d5
disk $((3 * gib)) scsi-hd,bus=sas.0,scsi-id=1,wwn=0x5000c500a1b2c3d6
# Never managed.
adapter qemu-xhci,id=usb
disk $((256 * mib)) usb-storage,bus=usb.0
readonly devices=14
# No SCSI devices: a controller with two namespaces, one whose medium is read-only, and a disk of virtio.
adapter nvme,id=nvme,serial=NVME-TWO-NAMESPACES
disk $((4 * gib)) nvme-ns,bus=nvme,nsid=1
disk $((2 * gib)) nvme-ns,bus=nvme,nsid=2
disk $((8 * gib)) nvme,id=readonly,serial=NVME-READONLY,smart_critical_warning=8
disk $((3 * gib)) virtio-blk-pci,serial=VIRTIO-0001

# --- the run ------------------------------------------------------------------------------------------------------------

prepare() {
    command -v qemu-system-x86_64 >/dev/null || skip "qemu-system-x86_64 is missing (scripts/install-deps.sh vm)"
    qemu-system-x86_64 -version >/dev/null 2>&1 || skip "qemu-system-x86_64 does not start"
    local program
    for program in tavstrg vm_guest; do
        $fetch || [ -x "$build/bin/$program" ] || fail "$build/bin/$program is missing: build it first"
    done
    mkdir -p "$cache"
    local status=0
    if $fetch; then
        "$here/image.sh" "$cache" || status=$?
    else
        run=$(mktemp -d "$cache/run.XXXXXX")
        "$here/image.sh" "$cache" "$build" "$run/initramfs" || status=$?
    fi
    [ $status -ne 77 ] || skip "the machine's packages cannot be downloaded"
    [ $status -eq 0 ] || fail "the machine's root file system could not be created"
}

# Prints kvm if it works, else tcg. A /dev/kvm that exists may not work, so this boots the kernel without a root file system,
# which ends in a panic.
accelerator() {
    local said=""
    if [ -w /dev/kvm ]; then
        said=$(timeout 10 qemu-system-x86_64 -machine q35 -accel kvm -cpu max -m 512 -smp 1 -nodefaults -nic none \
            -display none -no-reboot -kernel "$cache/vmlinux" -append "console=ttyS0 panic=-1" -serial stdio \
            </dev/null 2>/dev/null | tr -d '\0') || true
    fi
    if [[ $said == *"Kernel panic"* ]]; then
        echo kvm
    else
        echo tcg
    fi
}

# Boots the machine and sets ended to its exit status.
boot() {
    local console=file:$run/console line
    line="console=ttyS0 quiet panic=-1 mitigations=off vm.devices=$devices vm.phases=$phases"
    if $keep; then
        line+=" vm.keep"
    fi
    if $verbose; then
        console=stdio
    fi
    ended=0
    # The third serial port is qemu's own monitor: the machine changes the state of its disks. The socket's name is relative
    # because it must be short.
    cd "$run"
    timeout --foreground "$time_limit" qemu-system-x86_64 -machine q35 -accel "$(accelerator)" -cpu max -m 512 \
        -smp 1 -nodefaults -nic none -display none -no-reboot -kernel "$cache/vmlinux" -initrd "$run/initramfs" \
        -append "$line" -serial "$console" -serial "file:$run/results" \
        -chardev socket,id=monitor,path=monitor,server=on,wait=off -mon chardev=monitor,mode=control \
        -chardev socket,id=port,path=monitor -serial chardev:port \
        -device isa-debug-exit,iobase=0xf4,iosize=1 "${machine[@]}" </dev/null || ended=$?
    mkdir "$run/out"
    tar -xzf "$run/results" -C "$run/out" 2>/dev/null || true
    rm -f "$run/initramfs"
}

show_log() {
    if [ -f "$run/console" ]; then
        echo "==== console of the machine"
        tail -n 100 "$run/console"
    fi
    local trace
    for trace in "$run"/out/*.trace; do
        [ -f "$trace" ] || continue
        echo "==== failures in the trace of the phase $(basename "$trace" .trace)"
        grep -F 'Failure!!' "$trace" | tail -n 20 || true
    done
    echo "==== more in $run"
}

judge() {
    local checks=$run/out/checks held=0 failed=0
    if [ -f "$checks" ]; then
        held=$(grep -c '^PASS ' "$checks" || true)
        failed=$(grep -c '^FAIL ' "$checks" || true)
        if $verbose; then
            cat "$checks"
        else
            grep '^FAIL ' "$checks" || true
        fi
    fi
    local problem=
    if [ "$ended" -eq 124 ]; then
        problem="the machine did not end within $time_limit s"
    elif [ "$ended" -ne 17 ] || ! grep -qx END "$checks" 2>/dev/null; then
        problem="the machine ended without results (qemu's exit status $ended)"
    elif [ "$failed" -gt 0 ]; then
        problem="$failed of $((held + failed)) checks failed"
    elif [ "$phases" = "$all_phases" ] && [ "$held" -ne "$all_checks" ]; then
        problem="$held checks passed, but $all_checks were expected"
    elif [ "$held" -eq 0 ]; then
        problem="no checks ran"
    fi
    if [ -n "$problem" ]; then
        show_log
        fail "$problem"
    fi
    if [ -f "$run/out/compare.md" ]; then
        cat "$run/out/compare.md"
    fi
    echo "run.sh: $held checks passed in $SECONDS s"
}

prepare
if $fetch; then
    exit 0
fi
boot
judge
if $keep; then
    echo "run.sh: results are in $run"
else
    rm -rf "$run"
fi
