// SPDX-License-Identifier: Apache-2.0
// The example machines.
#include "sim/sim.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/hdreg.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string example(const std::string &name)
{
    return sim::Machine::readFile(std::string(TAV_SOURCE_DIR) + "/examples/machines/" + name);
}

std::string firstLine(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

size_t disksOf(const sim::Machine &machine)
{
    size_t disks = 0;
    for (const auto &entry : std::filesystem::directory_iterator(machine.where("/sys/block"))) {
        disks += entry.path().filename().string().starts_with("sd") ? 1 : 0;
    }
    return disks;
}

TEST(Examples, AllCanBeMade)
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(TAV_SOURCE_DIR) + "/examples/machines")) {
        SCOPED_TRACE(entry.path());
        const sim::Machine machine(sim::Machine::readFile(entry.path()));
        EXPECT_TRUE(machine.exists("/opt/qlm/tavkit_sa/data/storage.inf"));
        EXPECT_TRUE(machine.exists("/opt/qlm/tavkit_sa/lib/libtavlog.so"));
        EXPECT_TRUE(firstLine("/proc/interrupts").starts_with("           CPU0"));
        EXPECT_EQ(firstLine("/proc/ioports").substr(0, 5), "0000-");
        ++count;
    }
    EXPECT_GE(count, 9);
}

TEST(Examples, LargeHas128Disks)
{
    const sim::Machine machine(example("large.json"));
    EXPECT_EQ(disksOf(machine), 128U);
    EXPECT_TRUE(machine.exists("/dev/sddx"));
    EXPECT_FALSE(machine.exists("/dev/sddy"));
}

TEST(Examples, ServerHasTwoDriversAndSerialNumbers)
{
    const sim::Machine machine(example("server.json"));
    EXPECT_EQ(disksOf(machine), 24U);
    EXPECT_EQ(firstLine("/sys/class/scsi_host/host0/proc_name"), "isci");
    EXPECT_EQ(firstLine("/sys/class/scsi_host/host1/proc_name"), "mvsas");
    const int fd = open("/dev/sdx", O_RDONLY);
    ASSERT_GE(fd, 0);
    char identity[513] = {};
    EXPECT_EQ(ioctl(fd, HDIO_GET_IDENTITY, identity), 0);
    EXPECT_EQ(std::string(identity + 20, 20), "HE96730511          ");
    close(fd);
    EXPECT_TRUE(machine.exists("/dev/st0"));
    EXPECT_TRUE(machine.exists("/dev/sr0"));
}

TEST(Examples, TodayHasABackplaneAndDisksThatDoNotAnswer)
{
    const sim::Machine machine(example("today.json"));
    EXPECT_EQ(disksOf(machine), 28U);
    const std::string bay = "/sys/class/enclosure/258:0:24:0/Slot 23/";
    EXPECT_EQ(firstLine(bay + "slot"), "23");
    EXPECT_EQ(firstLine(bay + "device/wwid"), "naa.5000c500b0a1005c");
    EXPECT_EQ(firstLine(bay + "device/sas_address"), "0x5000c500b0a1005d");
    EXPECT_EQ(firstLine("/sys/class/scsi_host/host259/proc_name"), "mpt3sas");
    EXPECT_TRUE(machine.exists("/sys/bus/scsi/devices/259:0:260:0/block/sdab"));
    EXPECT_EQ(firstLine("/sys/block/sdab/queue/zoned"), "host-managed");
    EXPECT_EQ(open("/dev/sdk", O_RDONLY | O_NONBLOCK), -1); // the dead one
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(machine.power("/dev/sdc").condition, "standby");
    EXPECT_EQ(machine.power("/dev/sds").condition, "standby");
}

TEST(Examples, MixedHasDisksOnEveryBus)
{
    const sim::Machine machine(example("mixed.json"));
    for (const char *node : {"sda", "sdf", "nvme0n1", "nvme0n2", "nvme1n1", "vda", "mmcblk0"}) {
        EXPECT_TRUE(machine.exists(std::string("/dev/") + node)) << node;
    }
    EXPECT_EQ(firstLine("/sys/block/nvme1c2n1/hidden"), "1");
    EXPECT_EQ(firstLine("/sys/block/sdd/device/wwid"), firstLine("/sys/block/sde/device/wwid"));
}

TEST(Examples, UsbHasUsbHosts)
{
    const sim::Machine machine(example("usb.json"));
    EXPECT_EQ(firstLine("/sys/class/scsi_host/host2/proc_name"), "usb-storage");
    EXPECT_EQ(disksOf(machine), 4U);
}

TEST(Examples, IdeHasIdeAndScsiInProcfs)
{
    const sim::Machine machine(example("ide.json"));
    EXPECT_EQ(firstLine("/proc/ide/hda/media"), "disk");
    EXPECT_EQ(firstLine("/proc/ide/hdc/media"), "cdrom");
    EXPECT_EQ(firstLine("/proc/ide/ide0/hda/geometry"), "physical     16383/16/63");
    EXPECT_TRUE(machine.exists("/proc/scsi/aic7xxx/0"));
    EXPECT_FALSE(machine.exists("/sys/bus/scsi/devices"));
}

} // namespace
