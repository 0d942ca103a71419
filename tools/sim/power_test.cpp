// SPDX-License-Identifier: Apache-2.0
// Power conditions of disks, their timers on the machine's clock, and what wakes them.
#include "support/sim_device.h"

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <linux/hdreg.h>
#include <stdexcept>

namespace {

using namespace device_test;
using testing::ElementsAre;
using testing::HasSubstr;

const std::vector<uint8_t> kCheck16{0x85, 6, 0x2C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE5, 0};
const std::vector<uint8_t> kCheck12{0xA1, 6, 0x2C, 0, 0, 0, 0, 0, 0, 0xE5, 0, 0};

// ATA PASS-THROUGH without data; count is the sector count.
std::vector<uint8_t> command(uint8_t code, uint8_t count = 0)
{
    return {0x85, 6, 0x2C, 0, 0, 0, count, 0, 0, 0, 0, 0, 0, 0, code, 0};
}

uint8_t powerMode(const Node &node)
{
    return send(node, kCheck16, SG_DXFER_NONE).sense[13];
}

std::string ata(const std::string &power)
{
    return disk(R"("ata": true, "serial": "S1", "power": )" + power);
}

std::string scsi(const std::string &power)
{
    return disk(R"("vendor": "ACME", "serial": "S1", "power": )" + power);
}

TEST(Power, CheckPowerModeReturnsTheConditionInTheSectorCount)
{
    const std::pair<const char *, uint8_t> expected[] = {{"active", 0xFF}, {"idle", 0x80}, {"standby", 0x00}};
    for (const auto &[condition, count] : expected) {
        const sim::Machine machine(ata(std::string(R"({"state": ")") + condition + "\"}"));
        const Node node("/dev/sda");
        for (const auto &cdb : {kCheck16, kCheck12}) {
            const Result result = send(node, cdb, SG_DXFER_NONE);
            EXPECT_EQ(result.header.status, 2);
            EXPECT_THAT(result.senseBytes(), ElementsAre(0x72, 1, 0, 0x1D, 0, 0, 0, 0x0E, 9, 0x0C, 0, 0, 0, count, 0, 0,
                                                         0, 0, 0, 0, 0, 0x50));
        }
        std::array<uint8_t, 4> block{0xE5, 0, 0, 0};
        ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, block.data()), 0);
        EXPECT_EQ(block[2], count);
        EXPECT_EQ(machine.power("/dev/sda").condition, condition); // asking does not wake
        EXPECT_EQ(machine.power("/dev/sda").spinUps, 0U);
    }
}

TEST(Power, FixedFormatSenseHasTheRegistersInItsInformation)
{
    const sim::Machine machine(
        disk(R"("ata": true, "ataStatus": "fixed", "power": {"state": "idle"}, "smart": {"failing": true})"));
    const Node node("/dev/sda");
    EXPECT_THAT(send(node, kCheck16, SG_DXFER_NONE).senseBytes(),
                ElementsAre(0x70, 0, 1, 0, 0x50, 0, 0x80, 0x0A, 0, 0, 0, 0, 0, 0x1D, 0, 0, 0, 0));
    EXPECT_THAT(send(node, kSmartStatus, SG_DXFER_NONE).senseBytes(),
                ElementsAre(0x70, 0, 1, 0, 0x50, 0, 0, 0x0A, 0, 0, 0xF4, 0x2C, 0, 0x1D, 0, 0, 0, 0));
}

TEST(Power, DiskWithoutTheFeatureRefusesTheQuestion)
{
    const sim::Machine machine(ata(R"({"state": "standby", "reported": false})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kCheck16, SG_DXFER_NONE).sense[2], 0x0B);
}

TEST(Power, CommandsOfTheDiskWakeItOnce)
{
    const sim::Machine machine(ata(R"({"state": "standby"})"));
    const Node node("/dev/sda");
    std::array<char, 512> identity{};
    EXPECT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, identity.data()), 0); // the kernel answers these
    EXPECT_EQ(send(node, kInquiry).header.status, 0);
    EXPECT_EQ(machine.power("/dev/sda").condition, "standby");
    EXPECT_EQ(send(node, kSmartStatus, SG_DXFER_NONE).header.status, 2);
    EXPECT_EQ(send(node, kIdentify).header.status, 0);
    EXPECT_EQ(machine.power("/dev/sda").condition, "active");
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
}

TEST(Power, SleepingDiskIsWokenByAnyCommand)
{
    const sim::Machine machine(ata(R"({"state": "sleep"})"));
    const Node node("/dev/sda");
    EXPECT_EQ(powerMode(node), 0xFF);
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
}

TEST(Power, TimersRunOnTheMachinesClock)
{
    sim::Machine machine(ata(R"({"idleTimer": 60, "standbyTimer": 600})"));
    const Node node("/dev/sda");
    machine.advanceClock(59);
    EXPECT_EQ(powerMode(node), 0xFF);
    machine.advanceClock(1); // the question did not set the timer back
    EXPECT_EQ(powerMode(node), 0x80);
    machine.advanceClock(540);
    EXPECT_EQ(powerMode(node), 0x00);
    EXPECT_EQ(send(node, kSmartData).header.status, 0);
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    machine.advanceClock(599);
    EXPECT_EQ(powerMode(node), 0x80);
    EXPECT_EQ(send(node, kSmartData).header.status, 0); // an idle disk still rotates
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    machine.advanceClock(599);
    EXPECT_NE(powerMode(node), 0x00);
}

TEST(Power, ClockOfADescriptionAdvancesToo)
{
    const auto at = [](const char *clock) {
        return R"({"clock": )" + std::string(clock) +
               R"(, "hosts": [{"devices": [{"ata": true, "power": {"standbyTimer": 600}}]}]})";
    };
    sim::Machine machine(at("1000"));
    machine.change(at("1599"));
    EXPECT_EQ(machine.power("/dev/sda").condition, "active");
    machine.change(at("1600.5"));
    EXPECT_EQ(machine.power("/dev/sda").condition, "standby");
    machine.change(at("1000")); // time does not go back
    EXPECT_EQ(machine.power("/dev/sda").condition, "standby");
}

TEST(Power, CommandsSetConditionAndTimer)
{
    sim::Machine machine(ata("{}"));
    const Node node("/dev/sda");
    send(node, command(0xE1), SG_DXFER_NONE); // IDLE IMMEDIATE
    EXPECT_EQ(powerMode(node), 0x80);
    send(node, command(0xE0), SG_DXFER_NONE); // STANDBY IMMEDIATE
    EXPECT_EQ(powerMode(node), 0x00);
    send(node, command(0xE3, 12), SG_DXFER_NONE); // IDLE with a standby timer of 60 seconds
    machine.advanceClock(59);
    EXPECT_EQ(powerMode(node), 0x80);
    machine.advanceClock(1);
    EXPECT_EQ(powerMode(node), 0x00);
    send(node, command(0xE6), SG_DXFER_NONE);
    EXPECT_EQ(machine.power("/dev/sda").condition, "sleep");
}

TEST(Power, ScsiDiskReportsItsConditionInSenseData)
{
    sim::Machine machine(scsi(R"({"idleTimer": 60, "standbyTimer": 600})"));
    const Node node("/dev/sda");
    const auto sense = [&node] {
        const Result result = send(node, kRequestSense, SG_DXFER_FROM_DEV, 252);
        EXPECT_EQ(result.header.status, 0);
        return std::vector<int>{result.data[0], result.data[2], result.data[12], result.data[13]};
    };
    EXPECT_THAT(sense(), ElementsAre(0x70, 0, 0, 0));
    machine.advanceClock(60);
    EXPECT_THAT(sense(), ElementsAre(0x70, 0, 0x5E, 1));
    machine.advanceClock(540);
    EXPECT_THAT(sense(), ElementsAre(0x70, 0, 0x5E, 2));
    EXPECT_EQ(send(node, kInquiry).header.status, 0);
    EXPECT_EQ(send(node, {0, 0, 0, 0, 0, 0}, SG_DXFER_NONE).header.status, 0); // TEST UNIT READY
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 0U);
    EXPECT_EQ(send(node, kLogPages).header.status, 0);
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    EXPECT_THAT(sense(), ElementsAre(0x70, 0, 0, 0));
}

TEST(Power, DescribedConditionIsOneByCommandInEitherFormat)
{
    {
        const sim::Machine machine(scsi(R"({"state": "standby"})"));
        const Node node("/dev/sda");
        EXPECT_EQ(send(node, kRequestSense, SG_DXFER_FROM_DEV, 252).data[13], 4);
    }
    const sim::Machine machine(disk(R"("descriptorSense": true, "power": {"state": "idle"})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kRequestSense, SG_DXFER_FROM_DEV, 252).text(0, 4), "\x72" + std::string("\0\x5E\x03", 3));
}

TEST(Power, SpinningUpTakesItsTime)
{
    const sim::Machine machine(ata(R"({"state": "standby", "spinUpMs": 50})"));
    const Node node("/dev/sda");
    const auto begin = std::chrono::steady_clock::now();
    send(node, kSmartData);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST(Power, AnyCommandResumesASuspendedDisk)
{
    const sim::Machine machine(ata(R"({"runtimeStatus": "suspended"})"));
    const Node node("/dev/sda");
    EXPECT_TRUE(machine.power("/dev/sda").suspended);
    EXPECT_EQ(send(node, kCheck16, SG_DXFER_NONE).header.status, 2);
    EXPECT_EQ(machine.power("/dev/sda").resumes, 1U);
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    EXPECT_FALSE(machine.power("/dev/sda").suspended);
    EXPECT_EQ(machine.read("/sys/bus/scsi/devices/8:1:5:3/power/runtime_status"), "active\n");
}

TEST(Power, UseOfADiskWakesItAndCounts)
{
    sim::Machine machine(ata(R"({"state": "standby", "standbyTimer": 600})"));
    machine.useDisk("/dev/sda", 5, 2);
    machine.useDisk("/dev/sda", 1, 0);
    machine.advanceClock(300);
    EXPECT_EQ(machine.power("/dev/sda").condition, "active");
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    std::ifstream file("/sys/block/sda/stat");
    uint64_t reads = 0;
    uint64_t skipped = 0;
    uint64_t writes = 0;
    file >> reads >> skipped >> skipped >> skipped >> writes;
    EXPECT_EQ(reads, 6U);
    EXPECT_EQ(writes, 2U);
}

TEST(Power, ChangeOfADescriptionKeepsWhatCommandsDid)
{
    sim::Machine machine(ata(R"({"state": "standby"})"));
    {
        const Node node("/dev/sda");
        send(node, kSmartData);
    }
    machine.change(ata(R"({"state": "standby"})"));
    EXPECT_EQ(machine.power("/dev/sda").condition, "active");
    machine.change(ata(R"({"state": "idle"})"));
    EXPECT_EQ(machine.power("/dev/sda").condition, "idle");
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
}

TEST(Power, WrongValuesAreRefused)
{
    const auto refusal = [](const std::string &json) -> std::string {
        try {
            const sim::Machine machine(json);
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_THAT(refusal(ata(R"({"state": "asleep"})")), HasSubstr("power.state: expected one of: active, idle"));
    EXPECT_THAT(refusal(ata(R"({"idleTimer": -1})")), HasSubstr("power.idleTimer: the number is out of range"));
    EXPECT_THAT(refusal(ata(R"({"timer": 1})")), HasSubstr("power.timer: unknown field"));
    EXPECT_THAT(refusal(disk(R"("ataStatus": "short")")), HasSubstr("ataStatus: expected one of"));
    EXPECT_THAT(refusal(R"({"clock": -1})"), HasSubstr("clock: expected seconds"));
}

} // namespace
