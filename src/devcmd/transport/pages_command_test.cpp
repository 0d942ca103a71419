// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/pages_command.h"

#include "support/ioctl_double.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <scsi/scsi_ioctl.h>

using namespace tavstrg;

namespace {

using Bytes = std::vector<uint8_t>;

template <size_t N> Bytes bytesIn(const std::array<uint8_t, N> &bytes)
{
    return {bytes.begin(), bytes.end()};
}

// A buffer of SCSI_IOCTL_SEND_COMMAND as it must be: other bytes are zero.
Bytes legacy(size_t size, uint32_t in, uint32_t out, const std::string &rest)
{
    Bytes buffer(size);
    std::memcpy(buffer.data(), &in, 4);
    std::memcpy(buffer.data() + 4, &out, 4);
    const Bytes behind = bytesOf(rest);
    std::copy(behind.begin(), behind.end(), buffer.begin() + 8);
    return buffer;
}

TEST(PagesCdb, EveryByteIsRight)
{
    EXPECT_EQ(bytesIn(modeSense6Cdb(0x1C, 0)), bytesOf("1a 00 1c 00 ff 00"));
    EXPECT_EQ(bytesIn(modeSense6Cdb(0x1C, 3)), bytesOf("1a 00 dc 00 ff 00"));
    EXPECT_EQ(bytesIn(modeSense6Cdb(0xFF, 1)), bytesOf("1a 00 7f 00 ff 00"));
    EXPECT_EQ(bytesIn(modeSense10Cdb(0x1C, 0, 255)), bytesOf("5a 00 1c 00 00 00 00 00 ff 00"));
    EXPECT_EQ(bytesIn(modeSense10Cdb(0x08, 2, 0x123)), bytesOf("5a 00 88 00 00 00 00 01 23 00"));
    EXPECT_EQ(bytesIn(modeSelect6Cdb(1, 24)), bytesOf("15 11 00 00 18 00"));
    EXPECT_EQ(bytesIn(modeSelect6Cdb(2, 24)), bytesOf("15 10 00 00 18 00"));
    EXPECT_EQ(bytesIn(modeSelect10Cdb(1, 28)), bytesOf("55 11 00 00 00 00 00 00 1c 00"));
    EXPECT_EQ(bytesIn(logSenseCdb(0x00, 252)), bytesOf("4d 00 40 00 00 00 00 00 fc 00"));
    EXPECT_EQ(bytesIn(logSenseCdb(0x2F, 0x1FC)), bytesOf("4d 00 6f 00 00 00 00 01 fc 00"));
    EXPECT_EQ(bytesIn(requestSenseCdb()), bytesOf("03 00 00 00 ff 00"));
}

TEST(PagesCdb, ModeSelect10SendsOnlyTheLowByteOfALongLength)
{
    EXPECT_EQ(bytesIn(modeSelect10Cdb(0, 0x1FC)), bytesOf("55 10 00 00 00 00 00 00 fc 00"));
}

TEST(PagesLegacy, RequestNumberAndBufferAreTheKernels)
{
    EXPECT_EQ(SCSI_IOCTL_SEND_COMMAND, 1);
    EXPECT_EQ(bytesIn(legacyRequest(modeSense6Cdb(0x1C, 0), 0, 255)), legacy(269, 0, 255, "1a 00 1c 00 ff 00"));
    EXPECT_EQ(bytesIn(legacyRequest(logSenseCdb(0x2F, 252), 0, 252)),
              legacy(273, 0, 252, "4d 00 6f 00 00 00 00 00 fc 00"));
}

TEST(PagesLegacy, MoreThanTheBufferHoldsIsNotAskedFor)
{
    EXPECT_EQ(bytesIn(legacyRequest(logSenseCdb(0, 1000), 0, 1000)),
              legacy(273, 0, 265, "4d 00 40 00 00 00 00 03 e8 00"));
    EXPECT_EQ(bytesIn(legacyRequest(requestSenseCdb(), 0, 1000)), legacy(269, 0, 261, "03 00 00 00 ff 00"));
}

const char *const kPage = "dc 0a 18 f6 01 02 03 04 05 06 07 08";

TEST(PagesLegacy, ModeSelect6SendsAHeaderAndADescriptorOfItsOwn)
{
    // as a disk sends them: other lengths, other blocks
    const Bytes reply = bytesOf(std::string("17 01 10 08 11 22 33 44 55 66 77 88 ") + kPage + " ff ff");
    EXPECT_EQ(bytesIn(legacyModeSelect6(1, reply, {12, 24})),
              legacy(269, 24, 0,
                     "15 11 00 00 18 00 00 00 00 08 00 00 00 00 00 00 02 00 1c 0a 18 f6 01 02 03 04 05 06 07 08"));
}

TEST(PagesLegacy, ModeSelect6PutsThePageWhereItWas)
{
    const Bytes reply = bytesOf(std::string("0f 00 10 00 ") + kPage);
    EXPECT_EQ(bytesIn(legacyModeSelect6(0, reply, {4, 16})), // over the descriptor; its last bytes meet byte 12
              legacy(269, 16, 0, "15 10 00 00 10 00 00 00 00 08 dc 0a 18 f6 01 02 03 04 05 06 07 08"));
}

TEST(PagesLegacy, ModeSelect6ClearsTwoBitsOfListByte12WhateverIsThere)
{
    Bytes reply = bytesOf("0f 00 10 00 1c 0a 00 00 00 00 00 00 ff 00 00 00");
    EXPECT_EQ(legacyModeSelect6(0, reply, {4, 16})[8 + 6 + 12], 0x3F);
}

TEST(PagesLegacy, ModeSelect10SendsThePageAlone)
{
    const Bytes reply = bytesOf(std::string("00 1a 00 10 00 00 00 08 11 22 33 44 55 66 77 88 ") + kPage + " ff ff");
    EXPECT_EQ(bytesIn(legacyModeSelect10(0, reply, {16, 28})),
              legacy(273, 28, 0,
                     "55 10 00 00 00 00 00 00 1c 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                     "dc 0a 18 f6 01 02 03 04 05 06 07 08"));
}

TEST(PagesLegacy, APageBeyondTheBufferOrTheReplyIsCut)
{
    const Bytes reply(600, 0xEE);
    for (const SelectPlan plan :
         {SelectPlan{250, 300}, SelectPlan{254, 600}, SelectPlan{599, 900}, SelectPlan{0, 600}}) {
        const LegacyBuffer<6> six = legacyModeSelect6(0, reply, plan);
        const LegacyBuffer<10> ten = legacyModeSelect10(0, reply, plan);
        const uint8_t last = plan.offset < 255 ? 0xEE : 0;
        EXPECT_EQ(six.back(), last) << plan.offset;
        EXPECT_EQ(ten.back(), last) << plan.offset;
        EXPECT_EQ(legacyModeSelect10(0, std::span(reply).first(9), plan).back(), 0);
    }
}

// ---- replies ----

struct OffsetCase {
    const char *name;
    bool ten;
    const char *reply;
    PagePlace place;
    size_t offset;
};

const OffsetCase kOffsets[] = {
    {"6, block descriptor", false, "17 00 10 08 0 0 0 0 0 0 0 0 1c 0a 0 0 0 0 0 0 0 0 0 0", PagePlace::kInside, 12},
    {"6, none", false, "0f 00 10 00 1c 0a 0 0", PagePlace::kInside, 4},
    {"6, reply of 4 bytes", false, "03 00 00 00 1c 0a", PagePlace::kBeyondReply, 4},
    {"6, reply of 5 bytes", false, "04 00 00 00 1c 0a", PagePlace::kBeyondReply, 4},
    {"6, reply of 6 bytes", false, "05 00 00 00 1c 0a", PagePlace::kInside, 4},
    {"6, zeros", false, "00 00 00 00 00 00", PagePlace::kBeyondReply, 4},
    {"6, buffer too short", false, "ff 00 00 00 1c", PagePlace::kBeyondBuffer, 4},
    {"6, descriptors beyond", false, "ff 00 00 ff 1c 0a", PagePlace::kBeyondBuffer, 259},
    {"6, nothing", false, "", PagePlace::kBeyondBuffer, 4},
    {"10, block descriptor", true, "00 1a 0 10 0 0 0 08 0 0 0 0 0 0 0 0 1c 0a", PagePlace::kInside, 16},
    {"10, reply of 10 bytes", true, "00 08 0 0 0 0 0 0 1c 0a", PagePlace::kInside, 8},
    {"10, reply of 9 bytes", true, "00 07 0 0 0 0 0 0 1c 0a", PagePlace::kBeyondReply, 8},
    {"10, high byte of the length", true, "01 00 0 0 0 0 0 0 1c 0a", PagePlace::kInside, 8},
    {"10, high byte of descriptors", true, "ff ff 0 0 0 0 01 02 1c 0a", PagePlace::kBeyondBuffer, 266},
    {"10, as long as can be", true, "ff ff 0 0 0 0 ff ff 1c 0a", PagePlace::kBeyondBuffer, 65543},
    {"10, half a header", true, "ff ff 0 0 0 0 01", PagePlace::kBeyondBuffer, 264},
};

TEST(ModePageOffset, IsBehindTheBlockDescriptors)
{
    for (const OffsetCase &c : kOffsets) {
        const ModePage page = modePageOffset(bytesOf(c.reply), c.ten);
        EXPECT_EQ(page.place, c.place) << c.name;
        EXPECT_EQ(page.offset, c.offset) << c.name;
    }
}

TEST(PlanModeSelect, AcceptsAPageUpToTheBuffersEnd)
{
    for (const bool ten : {false, true}) {
        const size_t offset = ten ? 16 : 12;
        Bytes reply(255);
        reply[ten ? 7 : 3] = 8;
        reply[offset + 1] = static_cast<uint8_t>(255 - offset - 2);
        const auto plan = planModeSelect(reply, ten);
        ASSERT_TRUE(plan);
        EXPECT_EQ(plan->offset, offset);
        EXPECT_EQ(plan->total, 255U);
        ++reply[offset + 1];
        EXPECT_FALSE(planModeSelect(reply, ten));
    }
}

TEST(PlanModeSelect, OffsetAnd2MustLieBelowTheLength)
{
    Bytes reply(24);
    for (const size_t offset : {20U, 21U}) {
        reply[3] = static_cast<uint8_t>(offset - 4);
        EXPECT_TRUE(planModeSelect(reply, false)) << offset;
    }
    reply[3] = 22 - 4;
    EXPECT_FALSE(planModeSelect(reply, false));
    for (size_t length = 0; length <= 6; ++length) {
        EXPECT_FALSE(planModeSelect(Bytes(length, 0), false)) << length;
    }
    EXPECT_FALSE(planModeSelect(Bytes(10), true));
    EXPECT_TRUE(planModeSelect(Bytes(11), true));
    EXPECT_FALSE(planModeSelect(Bytes(255, 0xFF), true));
}

struct ListCase {
    const char *reply;
    bool listed;
};

TEST(ListsLogPage, TheListHasAsManyBytesAsItSays)
{
    const ListCase cases[] = {
        {"00 00 00 03 00 0d 2f", true},
        {"00 00 00 02 00 0d 2f", false}, // one byte beyond
        {"00 00 00 00 2f", false},
        {"00 00 00 01 2f", true},
        {"00 00 00 ff 00 2f", true},
        {"00 00 00 ff 00 0d", false},
        {"2f 2f 2f 01 00", false},
        {"00 00 01 00 2f", false}, // low byte alone
        {"", false},
        {"00 00 00", false},
    };
    for (const ListCase &c : cases) {
        EXPECT_EQ(listsLogPage(bytesOf(c.reply), 0x2F), c.listed) << c.reply;
    }
    Bytes longest(1024);
    longest[3] = 0xFF;
    longest[4 + 254] = 0x2F;
    EXPECT_TRUE(listsLogPage(longest, 0x2F));
    longest[4 + 254] = 0;
    longest[4 + 255] = 0x2F;
    EXPECT_FALSE(listsLogPage(longest, 0x2F));
}

struct LogCase {
    const char *reply;
    int asc; // -1: no such parameter
};

TEST(JudgeInformationalExceptionsLog, TheFirstParameterHasTheCode)
{
    const LogCase cases[] = {
        {"2f 00 00 07 00 00 03 03 5d ff 26", 0x5D},
        {"2f 00 00 07 00 00 03 02 0b 00", 0x0B},
        {"2f 00 00 04 00 00 03 01 5d", 0}, // too short for a code
        {"2f 00 00 04 00 00 03 00 5d", 0},
        {"2f 00 00 04 00 00 03 02 5d", 0x5D},
        {"2f 00 00 03 00 00 03 02 5d", -1},
        {"2f 00 01 00 00 00 03 02 5d", 0x5D},
        {"2f 00 00 07 00 01 03 03 5d", -1},
        {"2f 00 00 07 01 00 03 03 5d", -1},
        {"00 00 00 00 00 00 00 00 00", -1},
        {"", -1},
        {"2f 00 00 07 00 00 03 03", 0}, // nothing more was sent
    };
    for (const LogCase &c : cases) {
        const auto asc = judgeInformationalExceptionsLog(bytesOf(c.reply));
        EXPECT_EQ(asc ? *asc : -1, c.asc) << c.reply;
    }
}

} // namespace
