// SPDX-License-Identifier: Apache-2.0
#include "devcmd/geometry.h"

#include "devcmd/chs.h"
#include "devcmd/open_device.h"
#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

using testing::ElementsAre;

const int32_t kSectorSizeAtFirst = sector_size; // before any test has changed it

TEST(SectorSize, Is512AtFirst)
{
    EXPECT_EQ(kSectorSizeAtFirst, 512);
}

struct GeometryTest : testing::Test {
    NodeFile node;
    BlockDisk disk;
    IoctlDouble ioctl{[this](unsigned long request, void *argument) { return disk.answer(request, argument); }};
    TraceRecorder traces;

    GeometryTest() { sector_size = 512; }
    ~GeometryTest() override { sector_size = 512; }
};

const BlockDisk kAhciDisk{.kernelSectors = 4194304, .bytes = 2147483648, .heads = 255, .sectors = 63, .cylinders = 261};
const BlockDisk k4KnDisk{
    .sectorSize = 4096, .kernelSectors = 8388608, .bytes = 4294967296, .heads = 133, .sectors = 62, .cylinders = 1017};

TEST(GeometryRequests, AreTheKernelsNumbers)
{
    EXPECT_EQ(BLKSSZGET, 0x1268U);
    EXPECT_EQ(BLKGETSIZE, 0x1260U);
    EXPECT_EQ(BLKGETSIZE64, 0x80081272U);
    EXPECT_EQ(HDIO_GETGEO, 0x0301);
}

TEST_F(GeometryTest, SectorSizeIsTheKernels)
{
    disk = k4KnDisk;
    EXPECT_EQ(get_sectorsize(3), 4096);
    EXPECT_THAT(ioctl.requests, ElementsAre(BLKSSZGET));
    EXPECT_THAT(traces.texts(), ElementsAre("_IN_ fd=[3]", "_OUT_ ret=[4096]"));
}

TEST_F(GeometryTest, SectorSizeIs0WhenItCannotBeRead)
{
    disk.sectorSize = -1;
    EXPECT_EQ(get_sectorsize(3), 0);
    EXPECT_TRUE(traces.has(3, "_OUT_ ioctl(BLKSSZGET) failed", "get_sectorsize"));
    EXPECT_EQ(get_sectorsize(-1), 0);
    EXPECT_TRUE(traces.has(3, "_OUT_ fd == -1", "get_sectorsize"));
    EXPECT_EQ(ioctl.requests.size(), 1U);
}

TEST_F(GeometryTest, KernelGeometrySetsHeadsAndSectorsOnly)
{
    disk = kAhciDisk;
    StrgGeoInfo geo{7, 0, 0, 9};
    EXPECT_EQ(get_kernel_geometry(3, &geo), 0);
    EXPECT_EQ(geo.heads, 255U);
    EXPECT_EQ(geo.sectors, 63U);
    EXPECT_EQ(geo.cylinders, 7U);
    EXPECT_EQ(geo.capacity, 9U);
}

TEST_F(GeometryTest, KernelGeometryFailures)
{
    disk.heads = -1;
    StrgGeoInfo geo{1, 2, 3, 4};
    EXPECT_EQ(get_kernel_geometry(-1, &geo), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ fd == -1", "get_kernel_geometry"));
    EXPECT_EQ(get_kernel_geometry(3, nullptr), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ pStrgGeoInfo is NULL", "get_kernel_geometry"));
    EXPECT_EQ(get_kernel_geometry(3, &geo), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ ioctl(HDIO_GETGEO) failed", "get_kernel_geometry"));
    EXPECT_EQ(geo.heads, 3U);
    EXPECT_EQ(geo.sectors, 2U);
}

TEST_F(GeometryTest, DiskSizeComesFromBytesOrSectors)
{
    struct {
        long long sectors, bytes;
        uint64_t size;
    } const cases[] = {
        {4194304, 2147483648, 4194304},
        {4194304, 2147484672, 4194306}, // BLKGETSIZE64 takes precedence
        {4194304, 0, 4194304},          // no bytes
        {4194304, -1, 4194304},         // BLKGETSIZE64 fails
        {4096, 4096, 4096},             // deliberate: bytes equal to the sectors do not count
        {0, 1024, 2},
        {0, 0, 0},
        {-1, 2147483648, 0}, // without BLKGETSIZE the size is 0
    };
    for (const auto &c : cases) {
        disk.kernelSectors = c.sectors;
        disk.bytes = c.bytes;
        EXPECT_EQ(disksize(3), c.size) << c.sectors << " " << c.bytes;
    }
    EXPECT_TRUE(traces.has(3, "_OUT_ ioctl(BLKGETSIZE) failed", "disksize"));
    EXPECT_EQ(disksize(-1), 0U);
    EXPECT_TRUE(traces.has(3, "_OUT_ fd == -1", "disksize"));
}

TEST_F(GeometryTest, RecordedDisksHaveTheirGeometry)
{
    for (const std::string &line : dataLines("geometry.txt")) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        uint64_t cylinders = 0;
        uint64_t capacity = 0;
        disk = BlockDisk{};
        in >> disk.heads >> disk.sectors >> disk.sectorSize >> disk.kernelSectors >> disk.bytes >> cylinders >>
            capacity;
        ASSERT_FALSE(in.fail());

        HardDiskEntry entry{};
        EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
        EXPECT_EQ(entry.CylindersPerUnit, cylinders);
        EXPECT_EQ(entry.TracksPerCylinder, static_cast<uint64_t>(disk.heads));
        EXPECT_EQ(entry.SectorsPerTrack, static_cast<uint64_t>(disk.sectors));
        EXPECT_EQ(entry.Capacity, capacity);

        StrgGeoInfo geo{};
        EXPECT_EQ(GetGeoFromKernel(node.path(), &geo), 0);
        EXPECT_EQ(geo.cylinders, cylinders);
        EXPECT_EQ(geo.heads, static_cast<uint32_t>(disk.heads));
        EXPECT_EQ(geo.sectors, static_cast<uint32_t>(disk.sectors));
        EXPECT_EQ(geo.capacity, capacity);
    }
}

TEST_F(GeometryTest, NodesAreOpenedForReadingOnly)
{
    disk = kAhciDisk;
    HardDiskEntry entry{};
    StrgGeoInfo geo{};
    ASSERT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    ASSERT_FALSE(ioctl.modes.empty());
    EXPECT_THAT(ioctl.modes, testing::Each(O_RDONLY));
    ioctl.modes.clear();
    ASSERT_EQ(GetGeoFromKernel(node.path(), &geo), 0);
    ASSERT_FALSE(ioctl.modes.empty());
    EXPECT_THAT(ioctl.modes, testing::Each(O_RDONLY));
}

TEST_F(GeometryTest, GeoFromKernelFailures)
{
    StrgGeoInfo geo{1, 2, 3, 4};
    const auto fails = [&](const BlockDisk &as, const std::string &text) {
        SCOPED_TRACE(text);
        disk = as;
        const int before = openDescriptors();
        traces.clear();
        EXPECT_EQ(GetGeoFromKernel(node.path(), &geo), -1);
        EXPECT_TRUE(traces.has(3, text, "GetGeoFromKernel"));
        EXPECT_EQ(geo.cylinders, 1U);
        EXPECT_EQ(geo.heads, 3U);
        EXPECT_EQ(geo.capacity, 4U);
        EXPECT_EQ(openDescriptors(), before);
    };
    BlockDisk broken = kAhciDisk;
    broken.sectorSize = -1;
    fails(broken, "_OUT_ get_sectorsize() failed");
    broken.sectorSize = 0;
    fails(broken, "_OUT_ get_sectorsize() failed");
    broken = kAhciDisk;
    broken.heads = -1;
    fails(broken, "_OUT_ get_kernel_geometry() failed");
    broken = kAhciDisk;
    broken.kernelSectors = -1;
    fails(broken, "_OUT_ disksize() failed");
    broken.kernelSectors = broken.bytes = 0;
    fails(broken, "_OUT_ disksize() failed");
    broken = kAhciDisk;
    broken.heads = 0;
    fails(broken, "_OUT_ heads=[0] sectors=[63] Failure!!"); // instead of a division by zero
    broken = kAhciDisk;
    broken.sectors = 0;
    fails(broken, "_OUT_ heads=[255] sectors=[0] Failure!!");

    EXPECT_EQ(GetGeoFromKernel(nullptr, &geo), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ device is NULL", "GetGeoFromKernel"));
    EXPECT_EQ(GetGeoFromKernel(node.path(), nullptr), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ pStrgGeoInfo is NULL", "GetGeoFromKernel"));
    EXPECT_EQ(GetGeoFromKernel("/nonexistent/hda", &geo), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ open failed. [/nonexistent/hda]", "GetGeoFromKernel"));
}

TEST_F(GeometryTest, GeoFromKernelFailsBelow512ByteSectors)
{
    for (const int size : {1, 256, 511}) {
        disk = kAhciDisk;
        disk.sectorSize = size;
        StrgGeoInfo geo{1, 2, 3, 4};
        EXPECT_EQ(GetGeoFromKernel(node.path(), &geo), -1) << size;
        EXPECT_EQ(geo.cylinders, 1U);
        EXPECT_TRUE(traces.has(3, "_OUT_ sectorSize=[" + std::to_string(size) + "] Failure!!", "GetGeoFromKernel"));
    }
    for (const int size : {512, 513, 520}) {
        disk = kAhciDisk;
        disk.sectorSize = size;
        StrgGeoInfo geo{};
        EXPECT_EQ(GetGeoFromKernel(node.path(), &geo), 0) << size;
        EXPECT_EQ(geo.cylinders, 261U);
    }
}

TEST_F(GeometryTest, DiskGeometryTakesSmallSectorsAs512)
{
    for (const int size : {1, 256, 511, 513, 520}) {
        disk = kAhciDisk;
        disk.sectorSize = size;
        HardDiskEntry entry{};
        EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
        EXPECT_EQ(entry.CylindersPerUnit, 261U);
        EXPECT_EQ(entry.Capacity, static_cast<uint64_t>(size) * 261 * 255 * 63 / 1048576);
    }
}

TEST_F(GeometryTest, GeometryTracesWhatItFound)
{
    disk = kAhciDisk;
    GeometryTriple triple{};
    GetGeometry(3, &triple);
    EXPECT_EQ(triple.heads, 255U);
    EXPECT_EQ(triple.sectors, 63U);
    EXPECT_EQ(triple.cylinders, 261U);
    EXPECT_THAT(traces.textsOf("GetGeometry"),
                ElementsAre("_IN_ fd=[3]", "[geometryContent] heads=[255] sectors=[63] cylinders=[261]", "_OUT_"));
    EXPECT_TRUE(traces.has(0, "[geometryContent] heads=[255] sectors=[63] cylinders=[261]"));
    EXPECT_THAT(ioctl.requests, ElementsAre(BLKSSZGET, BLKGETSIZE, HDIO_GETGEO));
}

TEST_F(GeometryTest, SectorsOf4096BytesDivideTheCylindersBy8)
{
    disk = k4KnDisk;
    GeometryTriple triple{};
    GetGeometry(3, &triple);
    EXPECT_EQ(sector_size, 4096);
    EXPECT_EQ(triple.cylinders, 8388608U / (133 * 62) / 8);
    HardDiskEntry entry{};
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    EXPECT_EQ(entry.Capacity, 4096ULL * triple.cylinders * 133 * 62 / 1048576);
}

TEST_F(GeometryTest, ASectorSizeThatCannotBeReadIsTheLastOne)
{
    disk = k4KnDisk;
    GeometryTriple triple{};
    GetGeometry(3, &triple);
    for (const int size : {-1, 0}) {
        disk = kAhciDisk;
        disk.sectorSize = size;
        traces.clear();
        GetGeometry(3, &triple);
        EXPECT_EQ(sector_size, 4096);
        EXPECT_TRUE(traces.has(3, "_OUT_ get_sectorsize() failed", "GetGeometry"));
        EXPECT_EQ(triple.cylinders, 4194304U / (255 * 63) / 8);
    }
}

TEST_F(GeometryTest, WithoutKernelGeometryTheDiskIsOneTrack)
{
    for (const BlockDisk &answer : {BlockDisk{.kernelSectors = 4194304, .heads = -1},
                                    BlockDisk{.kernelSectors = 4194304, .heads = 0, .sectors = 63},
                                    BlockDisk{.kernelSectors = 4194304, .heads = 255, .sectors = 0}}) {
        disk = answer;
        traces.clear();
        HardDiskEntry entry{};
        EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
        EXPECT_EQ(entry.CylindersPerUnit, 1U);
        EXPECT_EQ(entry.TracksPerCylinder, 1U);
        EXPECT_EQ(entry.SectorsPerTrack, 4194304U);
        EXPECT_EQ(entry.Capacity, 2048U); // the disk's size in MiB
        EXPECT_THAT(traces.textsOf("GetGeometry"),
                    testing::Contains(testing::StartsWith("ioctl HDIO_GETGEO error:Error info: ")));
    }
    disk = k4KnDisk;
    disk.heads = -1;
    HardDiskEntry entry{};
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    EXPECT_EQ(entry.SectorsPerTrack, 1048576U);
    EXPECT_EQ(entry.Capacity, 4096U);
    EXPECT_TRUE(traces.has(3, std::string("ioctl HDIO_GETGEO error:Error info: ") + strerror(EINVAL), "GetGeometry"));
}

TEST_F(GeometryTest, WithoutASizeTheKernelsGeometryIsTaken)
{
    disk = kAhciDisk;
    disk.kernelSectors = -1;
    GeometryTriple triple{9, 9, 9};
    GetGeometry(3, &triple);
    EXPECT_EQ(triple.heads, 255U);
    EXPECT_EQ(triple.sectors, 63U);
    EXPECT_EQ(triple.cylinders, 0U);
    EXPECT_TRUE(traces.has(3, std::string("ioctl BLKGETSIZE error:Error info: ") + strerror(EINVAL), "GetGeometry"));
    HardDiskEntry entry{};
    traces.clear();
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    EXPECT_EQ(entry.CylindersPerUnit, 261U);
    EXPECT_EQ(entry.TracksPerCylinder, 255U);
    EXPECT_EQ(entry.SectorsPerTrack, 63U);
    EXPECT_EQ(entry.Capacity, 512ULL * 261 * 255 * 63 / 1048576);
    EXPECT_EQ(traces.texts().back(), "_OUT_ (0)");
}

TEST_F(GeometryTest, ASizeOf0TakesTheKernelsGeometryToo)
{
    disk = kAhciDisk;
    disk.kernelSectors = 0;
    HardDiskEntry entry{};
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    EXPECT_EQ(entry.CylindersPerUnit, 261U);
}

TEST_F(GeometryTest, HeadsOf0InTheLastResortGiveNoCapacity)
{
    disk = BlockDisk{.kernelSectors = -1, .heads = 0, .sectors = 0, .cylinders = 0};
    HardDiskEntry entry{};
    entry.Capacity = 5;
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), 0);
    EXPECT_EQ(entry.Capacity, 0U);
}

TEST_F(GeometryTest, ADiskThatAnswersNothingFailsAndLeavesTheEntryAlone)
{
    disk = BlockDisk{.sectorSize = -1, .kernelSectors = -1, .bytes = -1, .heads = -1};
    HardDiskEntry entry{};
    entry.CylindersPerUnit = 1;
    entry.Capacity = 4;
    const int before = openDescriptors();
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), &entry), -1);
    EXPECT_TRUE(traces.has(3, "_OUT_ (-1)", "GetSCSIHDGeometry"));
    EXPECT_EQ(entry.CylindersPerUnit, 1U);
    EXPECT_EQ(entry.Capacity, 4U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(GeometryTest, ANodeThatCannotBeOpenedFails)
{
    HardDiskEntry entry{};
    for (const char *path : {"", "/nonexistent/sda"}) {
        traces.clear();
        EXPECT_EQ(GetSCSIHDGeometry(path, &entry), -1);
        EXPECT_EQ(traces.texts().back(), "_OUT_ (-1)");
    }
    EXPECT_EQ(GetSCSIHDGeometry(nullptr, &entry), -1);
    EXPECT_EQ(GetSCSIHDGeometry(node.path(), nullptr), -1);
    EXPECT_TRUE(ioctl.requests.empty());
}

TEST_F(GeometryTest, ANullTripleIsRefused)
{
    GetGeometry(3, nullptr);
    EXPECT_TRUE(traces.has(3, "_OUT_ param(geometry) Failure!!", "GetGeometry"));
    EXPECT_TRUE(ioctl.requests.empty());
}

TEST_F(GeometryTest, NegativeDescriptorHasNoGeometry)
{
    GeometryTriple triple{9, 9, 9};
    GetGeometry(-1, &triple);
    EXPECT_EQ(triple.heads, 0U);
    EXPECT_EQ(triple.cylinders, 0U);
}

TEST(MakeGeometry, WhatDoesNotFitIsTheLargestValue)
{
    const uint64_t twoTiB = uint64_t{1} << 32;
    EXPECT_EQ(makeGeometry(twoTiB, {0, 0}, 1).sectors, 0xFFFFFFFFU);
    EXPECT_EQ(makeGeometry(twoTiB - 1, {0, 0}, 1).sectors, 0xFFFFFFFFU);
    EXPECT_EQ(makeGeometry(UINT64_MAX, {1, 1}, 1).cylinders, 0xFFFFFFFFU);
    EXPECT_EQ(makeGeometry(UINT64_MAX, {255, 255}, UINT64_MAX).cylinders, 0U);
}

TEST(SectorFactor, IsAtLeast1)
{
    EXPECT_EQ(sectorFactor(0), 1U);
    EXPECT_EQ(sectorFactor(511), 1U);
    EXPECT_EQ(sectorFactor(512), 1U);
    EXPECT_EQ(sectorFactor(520), 1U);
    EXPECT_EQ(sectorFactor(4096), 8U);
    EXPECT_EQ(sectorFactor(INT32_MAX), 4194303U);
}

} // namespace
