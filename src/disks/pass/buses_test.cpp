// SPDX-License-Identifier: Apache-2.0
// Disks of all buses, found and asked on a simulated machine.
#include "disks/find/find.h"
#include "disks/pass/pass.h"
#include "sim/sim.h"

#include <gtest/gtest.h>
#include <linux/nvme_ioctl.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>

using namespace tavstrg::disks;
using nlohmann::json;

namespace {

class Buses : public testing::Test {
protected:
    // A pass over the machine; the disk of that name.
    const Disk &ask(const json &machine, const std::string &name)
    {
        machine_.reset();
        machine_ = std::make_unique<sim::Machine>(machine.dump());
        disks_.clear();
        EXPECT_EQ(findDisks(disks_), FindResult::done);
        Pass pass;
        EXPECT_TRUE(pass.run(disks_));
        for (const Disk &disk : disks_) {
            if (name == disk.name) {
                return disk;
            }
        }
        ADD_FAILURE() << "no disk " << name;
        static const Disk none{};
        return none;
    }

    size_t healthLogs() const
    {
        size_t count = 0;
        for (const sim::Command &command : machine_->commands()) {
            count += command.request == NVME_IOCTL_ADMIN_CMD ? 1 : 0;
        }
        return count;
    }

    std::unique_ptr<sim::Machine> machine_;
    Array<Disk> disks_;
};

json nvme(const json &health = json::object())
{
    return {{"model", "POLAR P4"},
            {"serial", "P4-1"},
            {"health", health},
            {"namespaces", {{{"nsid", 1}, {"eui", "0025385b71b00001"}, {"sizeBytes", 1073741824}}, {{"nsid", 2}}}}};
}

TEST_F(Buses, NvmeControllerAnswersOnceForItsNamespaces)
{
    const Disk &disk =
        ask({{"nvme", {nvme({{"temperature", 41}, {"percentageUsed", 79}, {"powerOnHours", 1234}})}}}, "nvme0n1");
    EXPECT_EQ(disk.transport, Transport::nvme);
    EXPECT_STREQ(disk.id, "eui.0025385b71b00001");
    EXPECT_STREQ(disk.serial, "P4-1");
    EXPECT_EQ(disk.health.state, HealthState::good);
    EXPECT_EQ(disk.readings.temperatureCelsius.value, 41);
    EXPECT_EQ(disk.readings.enduranceUsedPercent.value, 79U);
    EXPECT_EQ(disk.readings.powerOnHours.value, 1234U);
    ASSERT_EQ(disks_.count(), 2);
    EXPECT_EQ(disks_[1].readings.powerOnHours.value, 1234U);
    EXPECT_EQ(healthLogs(), 1U);
}

TEST_F(Buses, NvmeWarningsWearAndAbsentSensors)
{
    EXPECT_EQ(ask({{"nvme", {nvme({{"criticalWarning", 8}})}}}, "nvme0n1").health.state, HealthState::failing);
    EXPECT_EQ(ask({{"nvme", {nvme({{"criticalWarning", 2}})}}}, "nvme0n1").health.state, HealthState::warning);
    EXPECT_EQ(ask({{"nvme", {nvme({{"percentageUsed", 255}})}}}, "nvme0n1").health.state, HealthState::warning);
    EXPECT_FALSE(ask({{"nvme", {nvme({{"temperature", nullptr}})}}}, "nvme0n1").readings.temperatureCelsius);
}

TEST_F(Buses, MultipathNvmeIsOneDisk)
{
    json machine = {{"nvme", json::array()}};
    for (int number = 0; number < 2; ++number) {
        json controller = nvme();
        controller["number"] = number;
        controller["subsystem"] = 0;
        controller["multipath"] = true;
        controller["namespaces"].erase(1);
        machine["nvme"].push_back(controller);
    }
    const Disk &disk = ask(machine, "nvme0n1");
    EXPECT_EQ(disks_.count(), 1);
    EXPECT_EQ(disk.pathCount, 3U);
    EXPECT_EQ(disk.health.state, HealthState::good) << disk.health.reason;
}

TEST_F(Buses, VirtioDisksAndCardsHaveNoHealthToAsk)
{
    const json machine = {{"virtio", {{{"serial", "VB-1"}}}},
                          {"mmc", {{{"name", "DG4064"}, {"cid", "4501004447343036340155a3c2f1d500"}}}}};
    const Disk &disk = ask(machine, "vda");
    EXPECT_STREQ(disk.id, "serial.virtio.VB-1");
    EXPECT_EQ(disk.health.state, HealthState::unknown);
    const Disk &card = ask(machine, "mmcblk0");
    EXPECT_EQ(card.transport, Transport::mmc);
    EXPECT_STREQ(card.id, "cid.4501004447343036340155a3c2f1d500");
    EXPECT_EQ(disks_.count(), 2) << "boot areas are no disks";
    EXPECT_TRUE(machine_->commands().empty());
}

json card(const char *lifeTime, const char *preEol)
{
    return {{"mmc", {{{"name", "DG4064"}, {"lifeTime", lifeTime}, {"preEolInfo", preEol}}}}};
}

TEST_F(Buses, WearOfAnEmmcIsWhatTheKernelRead)
{
    const Disk &fresh = ask(card("0x01 0x01", "0x01"), "mmcblk0");
    EXPECT_EQ(fresh.health.state, HealthState::good);
    EXPECT_EQ(fresh.readings.enduranceUsedPercent.value, 0U);
    EXPECT_FALSE(fresh.lastAsked) << "the kernel asked it when it found it";
    const Disk &used = ask(card("0x02 0x0a", "0x01"), "mmcblk0");
    EXPECT_EQ(used.health.state, HealthState::good);
    EXPECT_EQ(used.readings.enduranceUsedPercent.value, 90U) << "of the type of memory that is worn more";
    EXPECT_EQ(ask(card("0x0b 0x01", "0x01"), "mmcblk0").health.state, HealthState::warning);
    EXPECT_EQ(ask(card("0x01 0x01", "0x02"), "mmcblk0").health.state, HealthState::warning);
    EXPECT_STREQ(ask(card("0x00 0x00", "0x03"), "mmcblk0").health.reason,
                 "at least 90% of its reserved blocks are used");
    EXPECT_FALSE(ask(card("0x00 0x00", "0x01"), "mmcblk0").readings.enduranceUsedPercent);
    EXPECT_TRUE(machine_->commands().empty());
}

TEST_F(Buses, WearThatIsNotDefinedOrNonsenseIsAbsent)
{
    for (const auto &[lifeTime, preEol] :
         {std::pair{"", ""}, {"0x00 0x00", "0x00"}, {"0x0c 0xff", "0x04"}, {"2 1", "1"}, {"0x", "0xg"}}) {
        const Disk &disk = ask(card(lifeTime, preEol), "mmcblk0");
        EXPECT_FALSE(disk.readings.enduranceUsedPercent) << lifeTime;
        EXPECT_EQ(disk.health.state, HealthState::unknown) << lifeTime;
        EXPECT_STREQ(disk.health.source, "") << lifeTime;
    }
}

json scsi(const json &device)
{
    return {{"hosts", {{{"number", 0}, {"driver", "mpt3sas"}, {"transport", "sas"}, {"devices", {device}}}}}};
}

TEST_F(Buses, LogPagesOfASasDisk)
{
    const Disk &disk =
        ask(scsi({{"vendor", "NORDWIND"},
                  {"serial", "NWS1"},
                  {"wwn", "5000c500a1b2c3d4"},
                  {"exceptions", {{"logPage", true}}},
                  {"logs",
                   {{"temperature", 38}, {"percentageUsed", 100}, {"powerOnHours", 10000}, {"startStopCycles", 17}}}}),
            "sda");
    EXPECT_EQ(disk.transport, Transport::sas);
    EXPECT_STREQ(disk.id, "naa.5000c500a1b2c3d4");
    EXPECT_EQ(disk.readings.temperatureCelsius.value, 38);
    EXPECT_EQ(disk.readings.enduranceUsedPercent.value, 100U);
    EXPECT_EQ(disk.readings.powerOnHours.value, 10000U);
    EXPECT_EQ(disk.readings.powerCycles.value, 17U);
    EXPECT_EQ(disk.health.state, HealthState::warning) << disk.health.reason;
}

TEST_F(Buses, DeviceStatisticsOfAnAtaDisk)
{
    const json device = {{"ata", true},
                         {"model", "NORDWIND"},
                         {"serial", "NW-1"},
                         {"statistics", {{"powerOnHours", 777}, {"temperature", -3}, {"percentageUsed", 120}}}};
    const Disk &disk = ask({{"hosts", {{{"driver", "ahci"}, {"devices", {device}}}}}}, "sda");
    EXPECT_EQ(disk.readings.powerOnHours.value, 777U);
    EXPECT_EQ(disk.readings.temperatureCelsius.value, -3);
    EXPECT_EQ(disk.readings.enduranceUsedPercent.value, 120U);
    EXPECT_EQ(disk.health.state, HealthState::warning) << disk.health.reason;
    EXPECT_EQ(machine_->unknownIoctls(), 0U);
}

TEST_F(Buses, UsbBridgeWithoutATranslatorIsNotSentAtaCommands)
{
    const json device = {{"vendor", "BRIDGE"}, {"model", "STICK"}};
    const Disk &disk =
        ask({{"hosts", {{{"driver", "usb-storage"}, {"transport", "usb"}, {"devices", {device}}}}}}, "sda");
    EXPECT_EQ(disk.transport, Transport::usb);
    EXPECT_EQ(disk.health.state, HealthState::unknown) << disk.health.reason;
    for (const sim::Command &command : machine_->commands()) {
        ASSERT_FALSE(command.bytes.empty());
        EXPECT_TRUE(command.bytes[0] == 0x03 || command.bytes[0] == 0x12) << unsigned{command.bytes[0]};
    }
}

} // namespace
