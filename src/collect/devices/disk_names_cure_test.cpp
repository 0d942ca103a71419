// SPDX-License-Identifier: Apache-2.0
// Names of disks with the line "disk-names" in options.inf, and without it.
#include "collect/devices/disk_names.h"
#include "collect/devices/kernel_disk.h"
#include "support/inventory_fixture.h"

#include <algorithm>
#include <set>

using inventory::disk;
using inventory::host;
using inventory::machine;
using nlohmann::json;
using Texts = std::vector<std::string>;
using Numbers = std::vector<int>;

namespace {

constexpr unsigned long kGetIdLun = 0x5382;

class DiskNamesCure : public Inventory, public testing::WithParamInterface<const char *> {
protected:
    bool wasOpened(const std::string &node) const
    {
        const auto openings = machine_->openings();
        return std::any_of(openings.begin(), openings.end(),
                           [&](const sim::Opening &opening) { return opening.node == node; });
    }
    bool wasAskedForItsAddress() const
    {
        const auto commands = machine_->commands();
        return std::any_of(commands.begin(), commands.end(),
                           [](const sim::Command &command) { return command.request == kGetIdLun; });
    }
};

INSTANTIATE_TEST_SUITE_P(Lines, DiskNamesCure,
                         testing::Values("disk-names", "disk-names\ndisk-identity", "disk-names\nside-by-side",
                                         "disk-names\ndisk-identity\nside-by-side", "all"));

TEST(NodePath, IsTheNameBelowDevWithItsSlashes)
{
    char path[kDiskPathSize];
    EXPECT_TRUE(nodePathOf("sda", path));
    EXPECT_STREQ(path, "/dev/sda");
    EXPECT_TRUE(nodePathOf("cciss!c0d0", path));
    EXPECT_STREQ(path, "/dev/cciss/c0d0");
    EXPECT_TRUE(nodePathOf(std::string(kDiskPathSize - 6, 'x'), path));
    EXPECT_EQ(std::string(path).size(), kDiskPathSize - 1);
}

TEST(NodePath, OfNoNameIsEmpty)
{
    char path[kDiskPathSize];
    for (const std::string &name : {std::string(), std::string("."), std::string(".."), std::string("a/b"),
                                    std::string(kDiskPathSize - 5, 'x')}) {
        path[0] = 'x';
        EXPECT_FALSE(nodePathOf(name, path)) << name;
        EXPECT_STREQ(path, "") << name;
    }
}

TEST_P(DiskNamesCure, MoreThan128DisksAreAllNamed)
{
    json disks = json::array();
    for (int id = 0; id < 200; ++id) {
        disks.push_back(disk(id, "SERIAL-" + std::to_string(id)));
    }
    boot(machine({host(0, "ahci", disks)}));
    EXPECT_EQ(collect(), -1);

    ASSERT_EQ(collect(GetParam()), 0);
    ASSERT_EQ(collection().hd_dev_cnt, 200);
    for (int i = 0; i < 200; ++i) {
        const SCSIDeviceEntry &device = collection().pSCSIDevTbl[i];
        EXPECT_EQ(std::string(device.SerialNumber), "SERIAL-" + std::to_string(device.TargetID)) << i;
    }
    const Texts all = paths();
    EXPECT_EQ(std::set(all.begin(), all.end()).size(), 200U);
    EXPECT_EQ(std::count(all.begin(), all.end(), "/dev/sdgr"), 1); // the 200th
}

TEST_P(DiskNamesCure, AHostAbove255DoesNotShowAnotherOnesDisk)
{
    json other = disk(0, "OTHER");
    other["sizeBytes"] = uint64_t{800} << 30;
    other["smart"] = {{"failing", true}};
    boot(machine({host(1, "ahci", {disk(0, "RIGHT")}), host(257, "ahci", {other})}));
    ASSERT_EQ(collect(), 0);
    EXPECT_EQ(serials(), (Texts{"RIGHT", "RIGHT"}));
    EXPECT_EQ(predictions(), (Numbers{0, 0}));
    const HardDiskEntry *const found = collection().pHDDevTbl;
    const uint64_t right = found[0].Capacity;
    EXPECT_EQ(found[1].Capacity, right);

    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(serials(), (Texts{"RIGHT", "OTHER"}));
    EXPECT_EQ(predictions(), (Numbers{0, 1}));
    EXPECT_EQ(collection().pHDDevTbl[0].Capacity, right);
    EXPECT_GT(collection().pHDDevTbl[1].Capacity, right);
    EXPECT_EQ(paths(), (Texts{"/dev/sda", "/dev/sdb"}));
}

TEST_P(DiskNamesCure, AnIdOrLunAbove255DoesNotShowAnotherOnesDisk)
{
    json behind = disk(0, "LUN 256");
    behind["lun"] = 256;
    boot(machine({host(0, "ahci", {disk(0, "FIRST"), behind, disk(256, "ID 256")})}));
    ASSERT_EQ(collect(), 0);
    EXPECT_EQ(serials(), (Texts{"FIRST", "FIRST", "FIRST"}));

    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(serials(), (Texts{"FIRST", "LUN 256", "ID 256"}));
}

TEST_P(DiskNamesCure, AnUnmanagedZonedOrReducedDiskTakesNoNameAway)
{
    for (const char *const type : {"zoned", "rbc"}) {
        SCOPED_TRACE(type);
        json unmanaged = disk(0, "UNMANAGED");
        unmanaged["type"] = type;
        boot(machine({host(0, "virtio_scsi", {unmanaged}), host(1, "ahci", {disk(0, "KEPT"), disk(1, "LAST")})}));
        EXPECT_EQ(collect(), -1);

        ASSERT_EQ(collect(GetParam()), 0);
        EXPECT_EQ(serials(), (Texts{"KEPT", "LAST"}));
        EXPECT_EQ(paths(), (Texts{"/dev/sdb", "/dev/sdc"}));
    }
}

TEST_P(DiskNamesCure, NothingUnmanagedIsOpenedAndNoNodeForItsName)
{
    json listed = disk(0, "LISTED");
    listed["model"] = "LEFT OUT";
    json described = machine({host(0, "virtio_scsi", {disk(0, "UNMANAGED")}), host(1, "usb-storage", {disk(0, "USB")}),
                              host(2, "ahci", {listed, disk(1, "KEPT")})});
    described["files"]["noscsi.inf"] = "Vendor:ATA Model:LEFT OUT\n";
    boot(described);
    ASSERT_EQ(collect(), 0);
    ASSERT_EQ(serials(), Texts{"KEPT"});
    EXPECT_TRUE(wasAskedForItsAddress());
    EXPECT_TRUE(wasOpened("/dev/sda"));
    EXPECT_TRUE(wasOpened("/dev/sdb"));
    EXPECT_TRUE(wasOpened("/dev/sdc"));

    ASSERT_EQ(collect(GetParam()), 0);
    EXPECT_EQ(serials(), Texts{"KEPT"});
    EXPECT_FALSE(wasAskedForItsAddress());
    EXPECT_FALSE(wasOpened("/dev/sda"));
    EXPECT_FALSE(wasOpened("/dev/sdb"));
    EXPECT_FALSE(wasOpened("/dev/sdc"));
    EXPECT_TRUE(wasOpened("/dev/sdd"));
}

using DiskWithoutNode = Inventory;

TEST_F(DiskWithoutNode, HasNoNameAndCannotBeAsked)
{
    boot(machine({host(0, "ahci", {disk(0, "BARE")})}));
    machine_->remove("/sys/bus/scsi/devices/0:0:0:0/block");
    char path[kDiskPathSize] = "x";
    readNodePath({0, 0, 0, 0}, path);
    EXPECT_STREQ(path, "");
    EXPECT_EQ(collect("disk-names"), -1);
}

} // namespace
