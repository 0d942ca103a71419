// SPDX-License-Identifier: Apache-2.0
// The floor of a collection: the least that a program does to read what the records of SATA disks hold.
//
// It lists the devices once. For each it opens, reads and closes one file of sysfs for each of vendor, model, revision,
// type and size, lists one directory for the disk's name, and opens its node once for five requests; for each host
// adapter it reads the driver's name: 23 system calls for a disk behind a host adapter of its own, besides the
// requests. It checks nothing, tells nothing and numbers nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/hdreg.h>
#include <span>

namespace bench {

struct FloorDisk {
    unsigned host;
    char vendor[64];
    char model[64];
    char revision[64];
    char type[64];
    char sectors[64];
    char name[64];
    uint8_t identity[512]; // IDENTIFY DEVICE: serial number, features
    int sectorSize;        // bytes
    hd_geometry geometry;
    uint8_t smartData[4 + 512]; // of HDIO_DRIVE_CMD: refused where SMART is off
    uint8_t verdict[32];        // sense data of SMART RETURN STATUS
};

struct FloorHost {
    bool known;
    char driver[64];
};

// Reads the disks of the machine into the first elements of disks; hosts are by number, none known yet. Devices beyond
// either are left out. Returns the number of disks, or 0 if something could not be read.
size_t readFloor(std::span<FloorDisk> disks, std::span<FloorHost> hosts);

} // namespace bench
