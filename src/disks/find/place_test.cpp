// SPDX-License-Identifier: Apache-2.0
#include "disks/find/place.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tavstrg::disks;

namespace {

TEST(Place, SataDisk)
{
    const Place place = placeOf("../devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda");
    EXPECT_EQ(place.transport, Transport::sata);
    EXPECT_EQ(place.adapter, "0000:00:1f.2");
    EXPECT_EQ(place.queue, "host0");
    EXPECT_EQ(place.address, "0:0:0:0");
    EXPECT_TRUE(place.scsi);
}

TEST(Place, SasDiskBehindBridges)
{
    const Place place = placeOf("../devices/pci0000:00/0000:00:03.0/0000:02:00.0/host6/port-6:0/end_device-6:0/"
                                "target6:0:3/6:0:3:0/block/sdb");
    EXPECT_EQ(place.transport, Transport::sas);
    EXPECT_EQ(place.adapter, "0000:02:00.0");
    EXPECT_EQ(place.endDevice, "end_device-6:0");
    EXPECT_EQ(place.address, "6:0:3:0");
}

TEST(Place, UsbDiskAndItsDevice)
{
    const Place place = placeOf("../devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1.4/2-1.4:1.0/host9/target9:0:0/"
                                "9:0:0:0/block/sdc");
    EXPECT_EQ(place.transport, Transport::usb);
    EXPECT_EQ(place.usbDevice, "../devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1.4");
    EXPECT_EQ(place.address, "9:0:0:0");
}

TEST(Place, NvmeWithAndWithoutMultipath)
{
    const Place one = placeOf("../devices/pci0000:00/0000:00:1d.0/0000:01:00.0/nvme/nvme0/nvme0n1");
    EXPECT_EQ(one.transport, Transport::nvme);
    EXPECT_EQ(one.queue, "nvme0");
    EXPECT_EQ(one.address, "0000:01:00.0");
    EXPECT_FALSE(one.scsi);
    const Place head = placeOf("../devices/virtual/nvme-subsystem/nvme-subsys0/nvme0n1");
    EXPECT_EQ(head.transport, Transport::nvme);
    EXPECT_EQ(head.adapter, "");
    EXPECT_EQ(head.queue, "");
}

TEST(Place, VirtioDisksOfBothKinds)
{
    const Place block = placeOf("../devices/pci0000:00/0000:00:02.0/virtio1/block/vda");
    EXPECT_EQ(block.transport, Transport::virtio);
    EXPECT_EQ(block.adapter, "0000:00:02.0");
    EXPECT_EQ(block.address, "virtio1");
    EXPECT_FALSE(block.scsi);
    const Place scsi = placeOf("../devices/pci0000:00/0000:00:04.0/virtio2/host3/target3:0:0/3:0:0:1/block/sdd");
    EXPECT_EQ(scsi.transport, Transport::virtio);
    EXPECT_EQ(scsi.queue, "host3");
    EXPECT_EQ(scsi.address, "3:0:0:1");
    EXPECT_TRUE(scsi.scsi);
}

TEST(Place, OtherTransports)
{
    EXPECT_EQ(placeOf("../devices/pci0000:00/0000:05:00.0/host2/rport-2:0-1/target2:0:0/2:0:0:0/block/sda").transport,
              Transport::fibreChannel);
    EXPECT_EQ(placeOf("../devices/platform/host4/session1/target4:0:0/4:0:0:1/block/sdb").transport, Transport::iscsi);
    EXPECT_EQ(placeOf("../devices/pci0000:00/0000:03:00.0/host0/target0:2:0/0:2:0:0/block/sda").transport,
              Transport::scsi);
    EXPECT_EQ(placeOf("../devices/vbd-51712/block/xvda").transport, Transport::xen);
    const Place card = placeOf("../devices/platform/soc/fe340000.mmc/mmc_host/mmc0/mmc0:0001/block/mmcblk0");
    EXPECT_EQ(card.transport, Transport::mmc);
    EXPECT_EQ(card.address, "mmc0:0001");
}

TEST(Place, WhatHasNoDeviceHasNoPlace)
{
    for (const char *path : {"../devices/virtual/block/dm-0", "", "/", "sda", "///"}) {
        const Place place = placeOf(path);
        EXPECT_EQ(place.transport, Transport::unknown) << path;
        EXPECT_EQ(place.adapter, "") << path;
    }
}

TEST(Place, NamesOfPathsOfAMultipathDisk)
{
    EXPECT_TRUE(isNvmePathName("nvme0c10n1"));
    EXPECT_FALSE(isNvmePathName("nvme0n1"));
    EXPECT_FALSE(isNvmePathName("nvmecn"));
    EXPECT_FALSE(isNvmePathName("sdc"));
}

TEST(NameOrder, IsTheKernelsOwn)
{
    const std::vector<std::string> sorted{"hda", "mmcblk0", "nvme0n1", "nvme0n2", "nvme2n1", "nvme10n1", "sda", "sdb",
                                          "sdz", "sdaa",    "sdab",    "sdba",    "sdaaa",   "vda",      "vdb"};
    std::vector<std::string> names = sorted;
    std::reverse(names.begin(), names.end());
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) { return comesBefore(a, b); });
    EXPECT_EQ(names, sorted);
    EXPECT_FALSE(comesBefore("sda", "sda"));
    EXPECT_TRUE(comesBefore("sda", "sda1"));
}

} // namespace
