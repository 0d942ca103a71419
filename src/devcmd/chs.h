// SPDX-License-Identifier: Apache-2.0
// Cylinders, heads and sectors from what the kernel reports about a disk. Pure.
#pragma once

#include "devcmd/geometry.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

namespace tavstrg {

constexpr int32_t kKernelSector = 512; // bytes of the sectors in which the kernel counts sizes

// Kernel sectors to a logical sector: at least 1, whatever a device claims.
constexpr uint64_t sectorFactor(int32_t sectorSize)
{
    return sectorSize < kKernelSector ? 1U : static_cast<uint64_t>(sectorSize) / kKernelSector;
}

// The fields have 32 bits. What does not fit is the largest value: cut off, a disk of just 2^32 sectors would have
// none.
constexpr uint32_t fitted(uint64_t value)
{
    return static_cast<uint32_t>(std::min<uint64_t>(value, std::numeric_limits<uint32_t>::max()));
}

struct HeadsAndSectors {
    uint32_t heads;
    uint32_t sectors; // per track
};

constexpr bool isUsable(const HeadsAndSectors &chs)
{
    return chs.heads != 0 && chs.sectors != 0;
}

// kernelSectors: the disk's size, none when it could not be read; chs: what HDIO_GETGEO answered, zeros when it did
// not.
constexpr GeometryTriple makeGeometry(std::optional<uint64_t> kernelSectors, const HeadsAndSectors &chs,
                                      uint64_t factor)
{
    if (!kernelSectors) {
        return {chs.heads, chs.sectors, 0};
    }
    if (!isUsable(chs)) {
        return {1, fitted(*kernelSectors / factor), 1}; // the whole disk as one track
    }
    const uint64_t track = uint64_t{chs.heads} * chs.sectors;
    return {chs.heads, chs.sectors, fitted(*kernelSectors / track / factor)};
}

constexpr uint64_t capacityMiB(int32_t sectorSize, uint64_t cylinders, uint64_t heads, uint64_t sectors)
{
    return (static_cast<uint64_t>(sectorSize) * cylinders * heads * sectors) >> 20;
}

// 3 TiB of 4096-byte sectors, and the same disk without an answer to HDIO_GETGEO
static_assert(makeGeometry(6442450944, {255, 63}, 8).cylinders == 50128);
static_assert(capacityMiB(4096, 1, 1, makeGeometry(6442450944, {0, 0}, 8).sectors) == 3145728);

} // namespace tavstrg
