// SPDX-License-Identifier: Apache-2.0
// Where a disk is, by the path of its directory in sysfs. Pure.
#pragma once

#include "disks/disk.h"

#include <string_view>

namespace tavstrg::disks {

// What a path such as "../devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda" says. Views into
// that path; empty where it does not say it.
struct Place {
    Transport transport = Transport::unknown;
    std::string_view adapter;   // PCI address of the last function before the disk
    std::string_view queue;     // "host0", "nvme0"; else the last bus device
    std::string_view address;   // "0:0:0:0", "virtio1", "mmc0:0001"
    std::string_view endDevice; // "end_device-6:0:3" of a SAS domain
    std::string_view usbDevice; // the path up to and with the USB device
    bool scsi = false;
};

Place placeOf(std::string_view path);

// "0000:00:1f.2": domain, bus, device and function.
bool isPciAddress(std::string_view text);
// "0:0:3:1": host, channel, target and LUN.
bool isScsiAddress(std::string_view text);
// "nvme0c1n1", a path of a multipath disk whose node is nvme0n1.
bool isNvmePathName(std::string_view name);

// Whether a name of the kernel comes before another one: sda, sdb, sdz, sdaa; nvme2n1, nvme10n1.
bool comesBefore(std::string_view a, std::string_view b);

} // namespace tavstrg::disks
