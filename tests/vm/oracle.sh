#!/bin/sh
# Prints what the kernel and Debian's tools report about hosts and devices. Runs inside the virtual machine.
#
# One fact per line, separated by tabs: host number or device address, name of the fact, value.
#   driver                        of the host
#   kind                          of the device, in the words of lsscsi
#   disk                          device name, such as sda
#   vendor model revision         from its INQUIRY data (sg_inq)
#   serial health                 of an ATA disk, from smartctl
#   health                        of another disk: none, if it has no SMART, or refuses to be asked (smartctl)
#   page80                        serial number in VPD page 80h of a disk (sg_inq), if it has that page
#   wwid                          the kernel's, of a disk
#   attribute-N                   normalised value of SMART attribute N
#   bytes sector                  size and logical sector size (blockdev)
#   heads sectors                 the kernel's geometry (hdparm)
devices=/sys/bus/scsi/devices

ask() { timeout 20 "$@" 2>/dev/null; }

fact() { printf '%s\t%s\t%s\n' "$address" "$1" "$2"; }

# The value after "LABEL:" in the output of a tool, without blanks around it.
value() { printf '%s\n' "$answer" | sed -n "s/^ *$1: *//p" | sed -n '1s/ *$//p'; }

ata_facts() {
    answer=$(ask /tools/smartctl -d sat -i -H -A "$1")
    fact serial "$(value 'Serial Number')"
    fact health "$(value 'SMART overall-health self-assessment test result')"
    printf '%s\n' "$answer" | awk '$1 ~ /^[0-9]+$/ && $3 ~ /^0x/ { print $1, $4 + 0 }' | while read -r number figure; do
        fact "attribute-$number" "$figure"
    done
}

scsi_facts() {
    case $(ask /tools/smartctl -B /dev/null -d scsi -i "$1") in # without its database, which takes it a second
    *"lacks SMART capability"* | *"mandatory SMART command failed"*) fact health none ;;
    esac
}

disk_facts() {
    answer=$(ask /tools/sg_inq -p 0x80 "$1")
    fact page80 "$(value 'Unit serial number')"
    fact wwid "$(cat "$directory/wwid" 2>/dev/null)"
    fact bytes "$(ask blockdev --getsize64 "$1")"
    fact sector "$(ask blockdev --getss "$1")"
    # "geometry = cylinders/heads/sectors, ..."
    answer=$(ask /tools/hdparm -g "$1" | sed -n 's,.*geometry *= *[0-9]*/\([0-9]*/[0-9]*\).*,\1,p')
    fact heads "${answer%/*}"
    fact sectors "${answer#*/}"
}

for directory in /sys/class/scsi_host/host*; do
    address=${directory##*/host}
    fact driver "$(sed 's/ *$//' "$directory/proc_name")"
done

listing=$(ask /tools/lsscsi)
for directory in "$devices"/*:*:*:*; do
    address=${directory##*/}
    generic=$(ls "$directory/scsi_generic")
    disk=$(ls "$directory/block" 2>/dev/null)
    kind=$(printf '%s\n' "$listing" | awk -v address="[$address]" '$1 == address { print $2 }')
    fact kind "$kind"
    fact disk "$disk"
    answer=$(ask /tools/sg_inq "/dev/$generic")
    fact vendor "$(value 'Vendor identification')"
    vendor=$(value 'Vendor identification')
    fact model "$(value 'Product identification')"
    fact revision "$(value 'Product revision level')"
    case $disk in sd*) disk_facts "/dev/$disk" ;; esac
    case $vendor,$kind in
    ATA,*) ata_facts "/dev/$disk" ;;
    *,disk) scsi_facts "/dev/$disk" ;;
    esac
done
