// SPDX-License-Identifier: Apache-2.0
// Sector size, geometry and size of a block device.
#pragma once

#include "devcmd/hard_disk.h"

#include <cstdint>

extern int32_t sector_size; // logical sector size last read, bytes; 512 at first. Meant to outlive a collection.

namespace tavstrg {

// While one lives, this thread has a sector size of its own in place of the shared one, 512 at first.
class OwnSectorSize {
public:
    OwnSectorSize();
    ~OwnSectorSize();
    OwnSectorSize(const OwnSectorSize &) = delete;
    OwnSectorSize &operator=(const OwnSectorSize &) = delete;

private:
    int32_t size_;
    int32_t *const outer_;
};

} // namespace tavstrg

struct StrgGeoInfo {
    uint32_t cylinders;
    uint32_t sectors; // per track
    uint32_t heads;
    uint64_t capacity; // MiB
};

namespace tavstrg {

struct GeometryTriple {
    uint32_t heads;
    uint32_t sectors; // per track
    uint32_t cylinders;
};

} // namespace tavstrg

// BLKSSZGET in bytes; 0 on failure.
int get_sectorsize(int fd);
// Heads and sectors per track from HDIO_GETGEO. Returns 0, or -1.
int get_kernel_geometry(int fd, StrgGeoInfo *geo);
// Size in 512-byte sectors; 0 on failure.
uint64_t disksize(int fd);
// Geometry and capacity of a device node. Returns 0, or -1, also for a sector size below 512.
int GetGeoFromKernel(const char *path, StrgGeoInfo *geo);
void GetGeometry(int fd, tavstrg::GeometryTriple *geometry);
// Fills the four geometry fields of a hard-disk entry from its device node. Returns 0, or -1 with the entry untouched.
int GetSCSIHDGeometry(const char *path, tavstrg::HardDiskEntry *disk);

namespace tavstrg {

// Fills them from a size in 512-byte sectors alone: with 255 heads and 63 sectors per track, as the kernel's drivers
// do, or as one track if the disk is smaller than a cylinder. sectorSize: of a logical sector, bytes; 0 if unknown.
void setUsualGeometry(HardDiskEntry &disk, uint64_t kernelSectors, int32_t sectorSize);

} // namespace tavstrg
