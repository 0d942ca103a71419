// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/power_mode.h"

#include "support/ioctl_double.h"

#include <cerrno>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

std::vector<uint8_t> ataReturn(uint8_t count, uint8_t status = 0x50)
{
    std::vector<uint8_t> sense = bytesOf("72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 00 00 00 40 00");
    sense[13] = count;
    sense[21] = status;
    return sense;
}

SgReply withSense(std::vector<uint8_t> sense)
{
    return {.status = 2, .driverStatus = 8, .sense = std::move(sense)};
}

TEST(PowerModeAta, IsWhatTheCountRegisterSays)
{
    for (int count = 0; count <= 0xFF; ++count) {
        const bool asleep = count == 0 || count == 1 || count == 0x40;
        const bool awake = count == 0x41 || (count >= 0x80 && count <= 0x83) || count == 0xFF;
        const PowerMode expected = asleep ? PowerMode::kAsleep : awake ? PowerMode::kAwake : PowerMode::kUnknown;
        ScsiDouble disk({withSense(ataReturn(static_cast<uint8_t>(count)))});
        EXPECT_EQ(askPowerMode(3, PowerQuestion::kAta), expected) << count;
        ASSERT_EQ(disk.sent.size(), 1U);
        EXPECT_EQ(disk.sent[0].cdb, bytesOf("85 06 2c 00 00 00 00 00 00 00 00 00 00 00 e5 00"));
    }
}

TEST(PowerModeAta, ComesInFixedFormatToo)
{
    ScsiDouble disk({withSense(bytesOf("70 00 01 00 50 40 00 0a 00 00 00 00 00 1d 00 00 00 00"))});
    EXPECT_EQ(askPowerMode(3, PowerQuestion::kAta), PowerMode::kAsleep);
}

TEST(PowerModeAta, IsUnknownWithoutAnAnswer)
{
    const SgReply cases[] = {
        {},
        {.error = EIO},
        {.hostStatus = 3},
        withSense(ataReturn(0, 0x51)), // aborted: the register is that of the command
        withSense(bytesOf("70 00 05 00 00 00 00 0a 00 00 00 00 20 00 00 00")),
    };
    for (const SgReply &reply : cases) {
        ScsiDouble disk({reply});
        EXPECT_EQ(askPowerMode(3, PowerQuestion::kAta), PowerMode::kUnknown) << &reply - cases;
    }
}

struct SenseCase {
    const char *data;
    PowerMode mode;
};

TEST(PowerModeScsi, IsWhatTheSenseDataOfRequestSenseSay)
{
    const SenseCase cases[] = {
        {"70 00 00 00 00 00 00 0a 00 00 00 00 00 00 00 00 00 00", PowerMode::kAwake},
        {"72 00 00 00 00 00 00 00", PowerMode::kAwake},
        {"70 00 00 00 00 00 00 0a 00 00 00 00 5e 00 00 00 00 00", PowerMode::kAsleep}, // not named
        {"70 00 00 00 00 00 00 0a 00 00 00 00 5e 01 00 00 00 00", PowerMode::kAwake},  // idle
        {"70 00 00 00 00 00 00 0a 00 00 00 00 5e 02 00 00 00 00", PowerMode::kAsleep}, // standby_z by timer
        {"70 00 00 00 00 00 00 0a 00 00 00 00 5e 04 00 00 00 00", PowerMode::kAsleep}, // by command
        {"72 00 5e 09 00 00 00 00", PowerMode::kAsleep},                               // standby_y
        {"72 00 5e 07 00 00 00 00", PowerMode::kAwake},                                // idle_c
        {"72 00 5e 43 00 00 00 00", PowerMode::kAsleep},                               // on the way there
        {"72 02 04 02 00 00 00 00", PowerMode::kAsleep},                               // stopped
        {"70 00 06 00 00 00 00 0a 00 00 00 00 29 00 00 00 00 00", PowerMode::kAwake},  // was reset
        {"00 00 00 00 00 00 00 00", PowerMode::kUnknown},
        {"7f 00 5e 02 00 00 00 00", PowerMode::kUnknown},
    };
    for (const SenseCase &c : cases) {
        ScsiDouble disk({SgReply{.data = bytesOf(c.data)}});
        EXPECT_EQ(askPowerMode(3, PowerQuestion::kScsi), c.mode) << c.data;
        EXPECT_EQ(disk.sent.at(0).cdb, bytesOf("03 00 00 00 ff 00"));
    }
}

TEST(PowerModeScsi, IsUnknownWithoutAnAnswer)
{
    const SgReply cases[] = {{.error = EIO}, {.hostStatus = 1}, withSense(bytesOf("70 00 05")), {.status = 8}, {}};
    for (const SgReply &reply : cases) {
        ScsiDouble disk({reply});
        EXPECT_EQ(askPowerMode(3, PowerQuestion::kScsi), PowerMode::kUnknown) << &reply - cases;
    }
}

TEST(PowerModeScsi, CutSenseDataAreNoAnswer)
{
    EXPECT_EQ(powerModeOfSense(bytesOf("70 00 00 00 00 00 00 0a 00 00 00 00")), PowerMode::kUnknown);
    EXPECT_EQ(powerModeOfSense({}), PowerMode::kUnknown);
}

} // namespace
