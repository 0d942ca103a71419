// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/ata_exchange.h"
#include "devcmd/transport/ata_return.h"
#include "support/ioctl_double.h"

#include <cerrno>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

// What libata returns for SMART RETURN STATUS, in both formats.
const char *const kFixedGood = "f0 00 01 00 50 40 00 0a 00 00 4f c2 00 1d 00 00 00 00";
const char *const kFixedExceeded = "f0 00 01 00 50 40 00 0a 00 00 f4 2c 00 1d 00 00 00 00";
const char *const kDescriptorGood = "72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 40 50";

SmartVerdict verdictOf(const std::string &sense)
{
    const std::optional<AtaRegisters> registers = ataRegistersOf(bytesOf(sense));
    return registers ? smartVerdictOf(*registers) : SmartVerdict::kUnknown;
}

TEST(AtaReturn, BothFormatsHoldTheSameRegisters)
{
    const AtaRegisters expected{
        .error = 0x12, .status = 0x50, .device = 0x40, .count = 0x34, .lbaLow = 1, .lbaMid = 2, .lbaHigh = 3};
    EXPECT_EQ(ataRegistersOf(bytesOf("70 00 01 12 50 40 34 0a 00 01 02 03 00 1d 00 00 00 00")), expected);
    EXPECT_EQ(ataRegistersOf(bytesOf("72 01 00 1d 00 00 00 0e 09 0c 00 12 00 34 00 01 00 02 00 03 40 50")), expected);
}

TEST(AtaReturn, AVerdictComesInEitherFormat)
{
    EXPECT_EQ(verdictOf(kFixedGood), SmartVerdict::kGood);
    EXPECT_EQ(verdictOf(kFixedExceeded), SmartVerdict::kExceeded);
    EXPECT_EQ(verdictOf(kDescriptorGood), SmartVerdict::kGood);
    EXPECT_EQ(verdictOf("72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 f4 00 2c 40 50"), SmartVerdict::kExceeded);
}

TEST(AtaReturn, ACommandThatWasAbortedGivesNoVerdict)
{
    // the registers are those of the command then, which look like "good"
    EXPECT_EQ(verdictOf("70 00 01 04 51 40 00 0a 00 00 4f c2 00 1d 00 00"), SmartVerdict::kUnknown);
    EXPECT_EQ(verdictOf("72 0b 00 00 00 00 00 0e 09 0c 00 04 00 00 00 00 00 4f 00 c2 40 51"), SmartVerdict::kUnknown);
    EXPECT_EQ(verdictOf("72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 40 70"), SmartVerdict::kUnknown);
}

TEST(AtaReturn, SenseDataWithoutRegistersGiveNone)
{
    const char *const cases[] = {
        "",
        "70",
        "f0 00 01 00 50 40 00 0a 00 00 4f c2 00",                            // cut before the qualifier
        "f0 00 01 00 50 40 00 05 00 00 4f c2 00 1d",                         // shortened by its own length
        "f0 00 01 00 50 40 00 0a 00 00 4f c2 04 1d",                         // another code
        "f0 00 01 00 50 40 00 0a 00 00 4f c2 00 00",                         // another qualifier
        "f0 00 05 00 50 40 00 0a 00 00 4f c2 00 1d 00 00",                   // ILLEGAL REQUEST
        "f1 00 01 00 50 40 00 0a 00 00 4f c2 00 1d 00 00",                   // about an earlier command
        "73 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 40 50", // the same
        "72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 4f 00 c2 40",    // cut
        "72 01 00 1d 00 00 00 0e 09 0b 00 00 00 00 00 00 00 4f 00 c2 40 50", // too short by its own length
        "72 01 00 1d 00 00 00 0e 08 0c 00 00 00 00 00 00 00 4f 00 c2 40 50", // another descriptor
    };
    for (const char *const sense : cases) {
        EXPECT_FALSE(ataRegistersOf(bytesOf(sense))) << sense;
    }
}

// ---- the exchange ----

TEST(AtaExchange, HandsOverWhatCameBack)
{
    ScsiDouble disk({SgReply{.status = 2, .driverStatus = 8, .sense = bytesOf(kFixedGood)}});
    const AtaReply reply = exchangeAta(3, kSatSmartStatus);
    EXPECT_EQ(reply.transport, 0);
    EXPECT_EQ(reply.scsiStatus, kCheckCondition);
    EXPECT_EQ(std::vector<uint8_t>(reply.sense().begin(), reply.sense().end()), bytesOf(kFixedGood));
    EXPECT_EQ(disk.sent.at(0).cdb, bytesOf("85 06 2c 00 da 00 00 00 00 00 4f 00 c2 00 b0 00"));
    EXPECT_TRUE(ataDone(reply));
}

TEST(AtaExchange, IsDoneOnlyWhereTheDeviceSaysSo)
{
    struct Case {
        SgReply reply;
        bool done;
    };
    const Case cases[] = {
        {{}, true},
        {{.error = EIO}, false},
        {{.hostStatus = 3}, false},
        {{.status = 2, .driverStatus = 8, .sense = bytesOf("70 00 05 00 00 00 00 0a 00 00 00 00 20 00 00 00")}, false},
        {{.status = 2,
          .driverStatus = 8,
          .sense = bytesOf("72 0b 00 00 00 00 00 0e 09 0c 00 04 00 00 00 00 00 4f 00 c2 40 51")},
         false},
        {{.status = 8}, false}, // BUSY
        {{.status = 2, .driverStatus = 8, .sense = bytesOf(kDescriptorGood)}, true},
    };
    for (const Case &c : cases) {
        ScsiDouble disk({c.reply});
        std::array<uint8_t, kIdentifyLength> data{};
        EXPECT_EQ(ataDone(exchangeAta(3, kSatIdentify, data.data())), c.done) << &c - cases;
    }
}

} // namespace
