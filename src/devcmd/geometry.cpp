// SPDX-License-Identifier: Apache-2.0
#include "devcmd/geometry.h"

#include "devcmd/chs.h"
#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>

using namespace tavstrg;

int32_t sector_size = kKernelSector;

namespace {

constinit thread_local int32_t *ownSectorSize = nullptr;

// The sector size that was read last, of this thread's own or the shared one.
int32_t &lastSectorSize()
{
    return ownSectorSize == nullptr ? sector_size : *ownSectorSize;
}

// Traces under the name of its caller.
std::optional<uint64_t> readKernelSectors(int fd)
{
    unsigned long sectors = 0;
    if (::ioctl(fd, BLKGETSIZE, &sectors) < 0) {
        const int error = errno;
        TRACE(kFailure, "ioctl BLKGETSIZE error:Error info: %s", ErrorText(error).text());
        return std::nullopt;
    }
    return sectors;
}

HeadsAndSectors readHeadsAndSectors(int fd)
{
    hd_geometry geometry{};
    if (::ioctl(fd, HDIO_GETGEO, &geometry) < 0) {
        const int error = errno;
        TRACE(kFailure, "ioctl HDIO_GETGEO error:Error info: %s", ErrorText(error).text());
        return {0, 0};
    }
    const HeadsAndSectors chs{geometry.heads, geometry.sectors};
    if (!isUsable(chs)) {
        TRACE(kFailure, "ioctl HDIO_GETGEO error:Error info: %s", "no heads or no sectors");
    }
    return chs;
}

void setGeometry(HardDiskEntry &disk, const GeometryTriple &triple, int32_t sectorSize)
{
    disk.CylindersPerUnit = triple.cylinders;
    disk.TracksPerCylinder = triple.heads;
    disk.SectorsPerTrack = triple.sectors;
    disk.Capacity = capacityMiB(sectorSize, triple.cylinders, triple.heads, triple.sectors);
}

} // namespace

OwnSectorSize::OwnSectorSize() : size_(kKernelSector), outer_(ownSectorSize)
{
    ownSectorSize = &size_;
}

OwnSectorSize::~OwnSectorSize()
{
    ownSectorSize = outer_;
}

int get_sectorsize(int fd)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ fd=[%d]", fd);
    if (fd == -1) {
        return TRACED(0, kFailure, "_OUT_ fd == -1");
    }
    int size = 0;
    if (::ioctl(fd, BLKSSZGET, &size) < 0) {
        return TRACED(0, kFailure, "_OUT_ ioctl(BLKSSZGET) failed");
    }
    return TRACED(size, kDetail, "_OUT_ ret=[%d]", size);
}

int get_kernel_geometry(int fd, StrgGeoInfo *geo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ fd=[%d]", fd);
    if (fd == -1) {
        return TRACED(-1, kFailure, "_OUT_ fd == -1");
    }
    if (geo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ pStrgGeoInfo is NULL");
    }
    hd_geometry geometry{};
    if (::ioctl(fd, HDIO_GETGEO, &geometry) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ioctl(HDIO_GETGEO) failed");
    }
    geo->heads = geometry.heads;
    geo->sectors = geometry.sectors;
    return TRACED(0, kDetail, "_OUT_ heads=[%u] sectors=[%u]", geo->heads, geo->sectors);
}

uint64_t disksize(int fd)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ fd=[%d]", fd);
    if (fd == -1) {
        return TRACED(0, kFailure, "_OUT_ fd == -1");
    }
    unsigned long sectors = 0;
    if (::ioctl(fd, BLKGETSIZE, &sectors) < 0) {
        return TRACED(0, kFailure, "_OUT_ ioctl(BLKGETSIZE) failed");
    }
    uint64_t size = sectors;
    uint64_t bytes = 0;
    // Deliberate: bytes are compared with sectors.
    if (::ioctl(fd, BLKGETSIZE64, &bytes) >= 0 && bytes != 0 && bytes != sectors) {
        size = bytes >> 9;
    }
    return TRACED(size, kDetail, "_OUT_ size=[%llu]", static_cast<unsigned long long>(size));
}

int GetGeoFromKernel(const char *path, StrgGeoInfo *geo)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ device=[%s]", path == nullptr ? "NULL" : path);
    if (path == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ device is NULL");
    }
    if (geo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ pStrgGeoInfo is NULL");
    }
    const FileDesc device(openDevice(path, O_RDONLY));
    if (!device) {
        return TRACED(-1, kFailure, "_OUT_ open failed. [%s]", path);
    }
    const int32_t sectorSize = get_sectorsize(device.get());
    if (sectorSize <= 0) {
        return TRACED(-1, kFailure, "_OUT_ get_sectorsize() failed");
    }
    StrgGeoInfo read{};
    if (get_kernel_geometry(device.get(), &read) != 0) {
        return TRACED(-1, kFailure, "_OUT_ get_kernel_geometry() failed");
    }
    const uint64_t size = disksize(device.get());
    if (size == 0) {
        return TRACED(-1, kFailure, "_OUT_ disksize() failed");
    }
    if (!isUsable({read.heads, read.sectors})) {
        return TRACED(-1, kFailure, "_OUT_ heads=[%u] sectors=[%u] Failure!!", read.heads, read.sectors);
    }
    // Deliberate: unlike GetGeometry, which takes such a sector as one of the kernel's.
    if (sectorSize < kKernelSector) {
        return TRACED(-1, kFailure, "_OUT_ sectorSize=[%d] Failure!!", sectorSize);
    }
    const uint64_t cylinders = size / (uint64_t{read.heads} * read.sectors * sectorFactor(sectorSize));
    read.cylinders = fitted(cylinders);
    read.capacity = capacityMiB(sectorSize, cylinders, read.heads, read.sectors);
    *geo = read;
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void GetGeometry(int fd, GeometryTriple *geometry)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ fd=[%d]", fd);
    if (geometry == nullptr) {
        TRACE(kFailure, "_OUT_ param(geometry) Failure!!");
        return;
    }
    if (const int size = get_sectorsize(fd); size > 0) {
        lastSectorSize() = size;
    } else {
        TRACE(kFailure, "_OUT_ get_sectorsize() failed");
    }
    const std::optional<uint64_t> kernelSectors = readKernelSectors(fd);
    const HeadsAndSectors chs = readHeadsAndSectors(fd);
    *geometry = makeGeometry(kernelSectors, chs, sectorFactor(lastSectorSize()));
    TRACE(kDetail, "[geometryContent] heads=[%u] sectors=[%u] cylinders=[%u]", geometry->heads, geometry->sectors,
          geometry->cylinders);
    TRACE(kDetail, "_OUT_");
}

int GetSCSIHDGeometry(const char *path, HardDiskEntry *disk)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ path=[%s]", path == nullptr ? "NULL" : path);
    if (path == nullptr || disk == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    const FileDesc device(openDevice(path, O_RDONLY));
    if (!device) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    GeometryTriple triple{};
    GetGeometry(device.get(), &triple);
    if (triple.cylinders != 0 && triple.heads != 0 && triple.sectors != 0) {
        setGeometry(*disk, triple, lastSectorSize());
        return TRACED(0, kDetail, "_OUT_ (0)");
    }
    hd_geometry geometry{};
    if (::ioctl(device.get(), HDIO_GETGEO, &geometry) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    setGeometry(*disk, {geometry.heads, geometry.sectors, geometry.cylinders}, lastSectorSize());
    return TRACED(0, kDetail, "_OUT_ (0)");
}

void tavstrg::setUsualGeometry(HardDiskEntry &disk, uint64_t kernelSectors, int32_t sectorSize)
{
    constexpr HeadsAndSectors kUsual{255, 63}; // linux/drivers/ata/libata-scsi.c, ata_std_bios_param
    const int32_t logical = sectorSize > 0 ? sectorSize : kKernelSector;
    GeometryTriple triple = makeGeometry(kernelSectors, kUsual, sectorFactor(logical));
    if (triple.cylinders == 0) {
        triple = makeGeometry(kernelSectors, {0, 0}, sectorFactor(logical));
    }
    setGeometry(disk, triple, logical);
}
