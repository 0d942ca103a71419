// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/sense.h"
#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

using namespace tavstrg;

namespace {

using testing::ElementsAreArray;

constexpr char kFunction[] = "sat_ata_cmd_interface";

struct SatCommandCase {
    int selector;
    const char *cdb;
    const char *cdb12;
    int direction;
    unsigned length;
};

// clang-format off
const SatCommandCase kSatCommands[] = {
    {0, "85 06 0c 00 d8 00 00 00 01 00 4f 00 c2 00 b0 00", "a1 06 0c d8 00 01 4f c2 00 b0 00 00", -1, 0},
    {1, "85 06 0c 00 d9 00 00 00 01 00 4f 00 c2 00 b0 00", "a1 06 0c d9 00 01 4f c2 00 b0 00 00", -1, 0},
    {5, "85 06 2c 00 da 00 00 00 00 00 4f 00 c2 00 b0 00", "a1 06 2c da 00 00 4f c2 00 b0 00 00", -1, 0},
    {6, "85 06 2c 00 da 00 00 00 00 00 4f 00 c2 00 b0 00", "a1 06 2c da 00 00 4f c2 00 b0 00 00", -1, 0},
    {10, "85 08 0e 00 00 00 01 00 00 00 00 00 00 00 ec 00", "a1 08 0e 00 01 00 00 00 00 ec 00 00", -3, 512},
    {11, "85 08 0e 00 00 00 01 00 00 00 00 00 00 00 a1 00", "a1 08 0e 00 01 00 00 00 00 a1 00 00", -3, 512},
};
// clang-format on

TEST(SatCommands, BytesOfEverySelector)
{
    for (const SatCommandCase &c : kSatCommands) {
        SCOPED_TRACE(c.selector);
        ScsiDouble disk({SgReply{}});
        std::array<uint8_t, 512> data;
        data.fill(0xEE);
        EXPECT_EQ(sat_ata_cmd_interface(3, c.selector, 0, data.data()), 0);
        ASSERT_EQ(disk.sent.size(), 1U);
        const SgRequest &request = disk.sent[0];
        EXPECT_THAT(request.cdb, ElementsAreArray(bytesOf(c.cdb)));
        EXPECT_EQ(request.header.dxfer_direction, c.direction);
        EXPECT_EQ(request.header.dxfer_len, c.length);
        EXPECT_EQ(request.header.mx_sb_len, 32);
        EXPECT_EQ(request.header.timeout, 6000U);
        // the caller's buffer is cleared only for a command that returns data
        EXPECT_EQ(request.dataBefore, std::vector<uint8_t>(c.length, 0));
        EXPECT_EQ(data[0], c.length > 0 ? 0 : 0xEE);
        EXPECT_EQ(data[511], c.length > 0 ? 0 : 0xEE);
    }
}

TEST(SatCommands, BytesOfTheTwelveByteForm)
{
    for (const SatCommandCase &c : kSatCommands) {
        SCOPED_TRACE(c.selector);
        SatCommand command = satCommandOf(c.selector).value();
        EXPECT_EQ(satCdb(command).length, 16U);
        command.cdbLength = 12;
        const SatCdb cdb = satCdb(command);
        EXPECT_EQ(cdb.length, 12U);
        EXPECT_THAT(std::vector<uint8_t>(cdb.bytes.begin(), cdb.bytes.begin() + 12),
                    ElementsAreArray(bytesOf(c.cdb12)));
    }
}

TEST(SatCommands, FlagsAreInTheirBits)
{
    EXPECT_EQ(ataPassThrough16({.tDir = false, .byteBlock = false})[2], 0x00);
    EXPECT_EQ(ataPassThrough16({.byteBlock = false})[2], 0x08);
    EXPECT_EQ(ataPassThrough16({.tDir = false})[2], 0x04);
    EXPECT_EQ(ataPassThrough16({.ckCond = true, .tDir = false, .byteBlock = false})[2], 0x20);
    EXPECT_EQ(ataPassThrough16({.tLength = 3})[2], 0x0F);
    EXPECT_EQ(ataPassThrough16({.protocol = 0x0F})[1], 0x1E);
}

TEST(SatCommands, TransferFollowsLengthAndDirection)
{
    const auto same = [](const SatTransfer &transfer, int32_t direction, size_t length) {
        return transfer.direction == direction && transfer.length == length;
    };
    EXPECT_TRUE(same(satTransfer({.tLength = 0, .dataLength = 512}), DIR_NONE, 0));
    EXPECT_TRUE(same(satTransfer({.tLength = 2, .dataLength = 512}), DIR_FROM_DEVICE, 512));
    EXPECT_TRUE(same(satTransfer({.tDir = false, .tLength = 2, .dataLength = 512}), DIR_TO_DEVICE, 0));
}

TEST(SatInterface, OtherSelectorsAreNotSupported)
{
    std::array<uint8_t, 512> data{};
    ScsiDouble disk({SgReply{}});
    for (const int selector : {2, 3, 4, 7, 8, 9, 12, 13, 255, -1, INT32_MIN, INT32_MAX}) {
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_cmd_interface(3, selector, 0, data.data()), -1);
        EXPECT_TRUE(traces.has(3, "_OUT_ No support command[" + std::to_string(selector) + "]", kFunction));
    }
    EXPECT_TRUE(disk.sent.empty());
}

TEST(SatInterface, NegativeDescriptorAndMissingBufferAreInvalid)
{
    std::array<uint8_t, 512> data{};
    ScsiDouble disk({SgReply{}});
    const TraceRecorder traces;
    EXPECT_EQ(sat_ata_cmd_interface(-1, 10, 0, data.data()), -1);
    EXPECT_EQ(sat_ata_cmd_interface(-1, 99, 0, data.data()), -1);
    EXPECT_EQ(sat_ata_cmd_interface(3, 10, 0, nullptr), -1);
    EXPECT_EQ(sat_ata_cmd_interface(3, 11, 0, nullptr), -1);
    EXPECT_THAT(traces.textsOf(kFunction), testing::Contains("_OUT_ Invalid parameters").Times(4));
    EXPECT_TRUE(traces.has(3, "_OUT_ Invalid parameters", kFunction));
    EXPECT_TRUE(disk.sent.empty());
}

TEST(SatInterface, CommandsWithoutDataNeedNoBuffer)
{
    ScsiDouble disk({SgReply{}});
    EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_ENABLE, 0, nullptr), 0);
    EXPECT_EQ(disk.sent.at(0).header.dxferp, nullptr);
}

TEST(SatInterface, AFailedTransportIsAFailure)
{
    std::array<uint8_t, 512> data{};
    for (const SgReply &reply : {SgReply{.error = EIO}, SgReply{.hostStatus = 3}, SgReply{.hostStatus = 7},
                                 SgReply{.driverStatus = 6}, SgReply{.driverStatus = 7}}) {
        const TraceRecorder traces;
        ScsiDouble disk({reply});
        EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_IDENTIFY, 0, data.data()), -1);
        EXPECT_TRUE(traces.has(3, "_OUT_ ATA passthrough failed", kFunction));
    }
}

TEST(SatInterface, RecordedRepliesHaveTheirResults)
{
    for (const std::string &line : dataLines("sat-replies.txt")) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        int selector = 0;
        int result = 0;
        SgReply reply;
        in >> selector >> std::hex >> reply.status >> reply.driverStatus >> std::dec >> result >> std::ws;
        std::string sense;
        std::getline(in, sense);
        reply.sense = sense == "-" ? std::vector<uint8_t>() : bytesOf(sense);
        ScsiDouble disk({reply});
        std::array<uint8_t, 512> data{};
        EXPECT_EQ(sat_ata_cmd_interface(3, selector, 0, data.data()), result);
    }
}

TEST(SatInterface, WithoutSenseDataNoDescriptorIsLookedFor)
{
    for (const int selector : {SATCMD_SMART_ENABLE, SATCMD_SMART_STATUS, SATCMD_SMART_STATUS_CHECK}) {
        ScsiDouble disk({SgReply{}});
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_cmd_interface(3, selector, 0, nullptr), 0);
        EXPECT_TRUE(traces.has(3, "_OUT_ No sense data", "scsi_chk_sense_data_format"));
        EXPECT_THAT(traces.textsOf("scsi_find_sense_data"), testing::IsEmpty());
    }
}

SgReply returnStatus(const char *registers)
{
    return SgReply{.status = 2,
                   .driverStatus = 8,
                   .sense = bytesOf(std::string("72 01 00 1d 00 00 00 0e 09 0c 00 00 00 00 00 00 00 ") + registers)};
}

TEST(SatInterface, OnlyTheCheckingSelectorReportsThresholdExceeded)
{
    ScsiDouble disk({returnStatus("f4 00 2c 00 50")});
    const TraceRecorder traces;
    EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_STATUS_CHECK, 0, nullptr), 1);
    EXPECT_TRUE(traces.has(0, "_OUT_ The device has detected a threshold exceeded condition", kFunction));
    EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_STATUS, 0, nullptr), 0);
    EXPECT_EQ(traces.texts().back(), "_OUT_ (0)");
}

TEST(SatInterface, ExitTracesOfTheStatusCheck)
{
    {
        ScsiDouble disk({returnStatus("4f 00 c2 00 50")});
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_STATUS_CHECK, 0, nullptr), 0);
        EXPECT_TRUE(traces.has(0, "_OUT_ SMART self-test has completed without error,good status", kFunction));
        EXPECT_THAT(traces.textsOf(kFunction).front(), testing::StartsWith("_IN_"));
    }
    {
        ScsiDouble disk({returnStatus("4f 00 2c 00 50")});
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_STATUS_CHECK, 0, nullptr), -1);
        EXPECT_TRUE(traces.has(3, "_OUT_ The self-test returns unknown status", kFunction));
    }
    {
        ScsiDouble disk({returnStatus("4f 00 c2 00 50")});
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_cmd_interface(3, SATCMD_SMART_ENABLE, 0, nullptr), -1);
        EXPECT_TRUE(traces.has(3, "_OUT_ check status error. key=[1] code=[0] qualifier=[1d]", kFunction));
    }
}

TEST(AtaReturnBytes, LengthIsTakenAs12To14OfWhatIsThere)
{
    struct {
        uint8_t ownLength;
        size_t there;
        size_t taken;
    } const cases[] = {{12, 14, 14}, {10, 14, 12}, {11, 14, 13}, {0, 14, 12},  {255, 24, 14},
                       {12, 13, 13}, {12, 5, 5},   {12, 2, 2},   {12, 24, 14}, {0, 11, 11}};
    for (const auto &c : cases) {
        std::vector<uint8_t> descriptor(c.there, 0);
        descriptor[0] = 9;
        descriptor[1] = c.ownLength;
        EXPECT_EQ(ataReturnBytes(descriptor).size(), c.taken) << int{c.ownLength} << " " << c.there;
    }
    EXPECT_TRUE(ataReturnBytes({}).empty());
}

TEST(JudgeSatReply, ADescriptorCutOffBeforeItsRegistersIsAnUnknownStatus)
{
    const SenseInfo info{0x72, 1, 0, 0x1D, {}, 14};
    const std::vector<uint8_t> good = bytesOf("09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50");
    EXPECT_EQ(judgeSatReply(6, true, &info, good), SatOutcome::kSmartGood);
    EXPECT_EQ(judgeSatReply(6, true, &info, std::span(good).first(12)), SatOutcome::kSmartGood);
    EXPECT_EQ(judgeSatReply(6, true, &info, std::span(good).first(11)), SatOutcome::kSmartUnknown);
    EXPECT_EQ(judgeSatReply(6, true, &info, {}), SatOutcome::kDone);
    EXPECT_EQ(judgeSatReply(6, true, nullptr, {}), SatOutcome::kDone);
}

TEST(JudgeSatReply, UnaskedRegistersAreAnErrorOnlyWithTheirSense)
{
    const std::vector<uint8_t> registers = bytesOf("09 0c 00 00 00 00 00 00 00 4f 00 c2 00 50");
    for (int key = 0; key < 16; ++key) {
        const SenseInfo info{0x72, static_cast<uint8_t>(key), 0, 0x1D, {}, 14};
        EXPECT_EQ(judgeSatReply(0, false, &info, registers), key < 2 ? SatOutcome::kStatusError : SatOutcome::kDone);
    }
    EXPECT_EQ(judgeSatReply(0, false, std::array{SenseInfo{0x73, 0, 0, 0x1D, {}, 14}}.data(), registers),
              SatOutcome::kStatusError);
    EXPECT_EQ(judgeSatReply(0, false, std::array{SenseInfo{0x72, 0, 1, 0x1D, {}, 14}}.data(), registers),
              SatOutcome::kDone);
    EXPECT_EQ(judgeSatReply(0, false, std::array{SenseInfo{0x72, 0, 0, 0x1C, {}, 14}}.data(), registers),
              SatOutcome::kDone);
}

TEST(SatPassThrough, SendsTheIdentifyOfTheKind)
{
    for (const auto &[packet, opcode] : {std::pair{0, 0xEC}, std::pair{1, 0xA1}, std::pair{-1, 0xA1}}) {
        ScsiDouble disk({SgReply{}});
        const TraceRecorder traces;
        EXPECT_EQ(sat_ata_pass_through(3, packet), 0);
        EXPECT_EQ(disk.sent.at(0).cdb.at(14), opcode);
        EXPECT_TRUE(traces.has(0, "sat_ata_cmd_interface success", "sat_ata_pass_through"));
        EXPECT_EQ(traces.texts().back(), "_OUT_ ret=[0]");
    }
}

TEST(SatPassThrough, FailsWithTheCommand)
{
    ScsiDouble disk({SgReply{.hostStatus = 7}});
    const TraceRecorder traces;
    EXPECT_EQ(sat_ata_pass_through(3, 0), -1);
    EXPECT_TRUE(traces.has(3, "sat_ata_cmd_interface failed", "sat_ata_pass_through"));
    EXPECT_EQ(traces.texts().back(), "_OUT_ ret=[-1]");
    EXPECT_EQ(sat_ata_pass_through(-1, 0), -1);
}

} // namespace
