// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/sg_header.h"
#include "devcmd/transport/transport.h"
#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::ElementsAre;

struct TransportTest : testing::Test {
    uint8_t cdb[16] = {0x12, 0, 0, 0, 0x40, 0};
    uint8_t data[64] = {};
    uint8_t sense[32] = {};
    ScsiIoRequest request{};

    TransportTest()
    {
        request.cdb = cdb;
        request.cdb_len = 6;
        request.direction = DIR_FROM_DEVICE;
        request.data = data;
        request.data_len = sizeof data;
        request.sense = sense;
        request.sense_max = sizeof sense;
        request.timeout_sec = 6;
        request.scsi_status = 0xEE;
    }
};

TEST_F(TransportTest, TheKernelsRequestIsTheCallers)
{
    ScsiDouble disk({SgReply{}});
    ASSERT_EQ(_sg_IoctlCommon(3, &request), 0);
    ASSERT_EQ(disk.sent.size(), 1U);
    const sg_io_hdr &header = disk.sent[0].header;
    EXPECT_EQ(header.interface_id, 'S');
    EXPECT_EQ(header.dxfer_direction, -3);
    EXPECT_EQ(header.cmd_len, 6);
    EXPECT_EQ(header.mx_sb_len, 32);
    EXPECT_EQ(header.iovec_count, 0);
    EXPECT_EQ(header.dxfer_len, 64U);
    EXPECT_EQ(header.dxferp, data);
    EXPECT_EQ(header.cmdp, cdb);
    EXPECT_EQ(header.sbp, sense);
    EXPECT_EQ(header.timeout, 6000U);
    EXPECT_EQ(header.flags, 0U);
    EXPECT_THAT(disk.sent[0].cdb, ElementsAre(0x12, 0, 0, 0, 0x40, 0));
}

TEST_F(TransportTest, DirectionsAreTheKernels)
{
    const std::pair<int32_t, int> directions[] = {{DIR_NONE, -1}, {DIR_TO_DEVICE, -2}, {DIR_FROM_DEVICE, -3}};
    for (const auto &[direction, kernel] : directions) {
        ScsiDouble disk({SgReply{}});
        request.direction = direction;
        EXPECT_EQ(_sg_IoctlCommon(3, &request), 0);
        ASSERT_EQ(disk.sent.size(), 1U);
        EXPECT_EQ(disk.sent[0].header.dxfer_direction, kernel);
    }
}

TEST_F(TransportTest, Direction3IsEinvalWithoutAnIoctl)
{
    for (const int32_t direction : {3, -1, 0x7FFFFFFF}) {
        const TraceRecorder traces;
        ScsiDouble disk({SgReply{}});
        request.direction = direction;
        EXPECT_EQ(_sg_IoctlCommon(3, &request), -22);
        EXPECT_TRUE(disk.sent.empty());
        EXPECT_THAT(traces.texts(),
                    ElementsAre("_IN_", "Not support this kind of dirct " + std::to_string(direction), "_OUT_ [-22]"));
        EXPECT_EQ(traces.records()[1].level, 3);
    }
}

TEST_F(TransportTest, OnlyTheLowBytesOfTheLengthsReachTheKernel)
{
    ScsiDouble disk({SgReply{}});
    request.direction = DIR_NONE;
    request.data = nullptr;
    request.cdb_len = 0x110;
    request.sense_max = 0x220;
    request.data_len = 0x100000000;
    EXPECT_EQ(_sg_IoctlCommon(3, &request), 0);
    EXPECT_EQ(disk.sent[0].header.cmd_len, 16);
    EXPECT_EQ(disk.sent[0].header.mx_sb_len, 32);
    EXPECT_EQ(disk.sent[0].header.dxfer_len, 0U);
}

TEST_F(TransportTest, InvalidParametersAreRefusedWithoutAnIoctl)
{
    const TraceRecorder traces;
    ScsiDouble disk({SgReply{}});
    EXPECT_EQ(_sg_IoctlCommon(-1, &request), -1);
    EXPECT_EQ(_sg_IoctlCommon(-7, &request), -1);
    EXPECT_EQ(_sg_IoctlCommon(3, nullptr), -1);
    EXPECT_TRUE(disk.sent.empty());
    EXPECT_TRUE(traces.has(3, "Invalid parameters", "_sg_IoctlCommon"));
    EXPECT_EQ(traces.texts().back(), "_OUT_ [-1]");
}

TEST_F(TransportTest, AFailedIoctlGivesItsErrorAndClearsTheStatus)
{
    for (const int error : {ENOTTY, EIO, ENODEV, EACCES}) {
        const TraceRecorder traces;
        ScsiDouble disk({SgReply{.error = error}});
        request.scsi_status = 0xEE;
        EXPECT_EQ(_sg_IoctlCommon(3, &request), -error);
        EXPECT_EQ(request.scsi_status, 0);
        EXPECT_EQ(request.sense_len, 0U);
        EXPECT_TRUE(traces.has(3, std::string("ioctl failed,") + strerror(error), "_sg_IoctlCommon"));
        EXPECT_EQ(traces.texts().back(), "_OUT_ [" + std::to_string(-error) + "]");
    }
}

struct SentStatusCase {
    unsigned hostStatus;
    unsigned driverStatus;
    int result;
    int level;
    const char *text; // null: no line of its own
};

const SentStatusCase kStatusCases[] = {
    {0, 0x0, 0, 0, nullptr},
    {1, 0x0, -110, 0, "host_status timeout 1"},
    {2, 0x0, -110, 0, "host_status timeout 2"},
    {3, 0x0, -110, 0, "host_status timeout 3"},
    {4, 0x0, -5, 3, "host_status io error 4"},
    {5, 0x0, -5, 3, "host_status io error 5"},
    {6, 0x0, -5, 3, "host_status io error 6"},
    {7, 0x0, -5, 3, "host_status io error 7"},
    {0xFFFF, 0x0, -5, 3, "host_status io error ffff"},
    // the host's status comes first
    {3, 0x8, -110, 0, "host_status timeout 3"},
    {7, 0x6, -5, 3, "host_status io error 7"},
    {0, 0x1, -5, 3, "driver_status io error 1"},
    {0, 0x2, -5, 3, "driver_status io error 2"},
    {0, 0x3, -5, 3, "driver_status io error 3"},
    {0, 0x4, -5, 3, "driver_status io error 4"},
    {0, 0x5, -5, 3, "driver_status io error 5"},
    {0, 0x6, -110, 3, "driver_status timeout 6"},
    {0, 0x7, -5, 3, "driver_status io error 7"},
    {0, 0x8, 0, 0, "include driver sense data"},
    {0, 0x9, -5, 3, "driver_status io error 9"},
    {0, 0xA, -5, 3, "driver_status io error a"},
    {0, 0xB, -5, 3, "driver_status io error b"},
    {0, 0xC, -5, 3, "driver_status io error c"},
    {0, 0xD, -5, 3, "driver_status io error d"},
    {0, 0xE, -5, 3, "driver_status io error e"},
    {0, 0xF, -5, 3, "driver_status io error f"},
    // the upper four bits are suggestions
    {0, 0x10, 0, 0, nullptr},
    {0, 0x18, 0, 0, "include driver sense data"},
    {0, 0x26, -110, 3, "driver_status timeout 26"},
};

TEST_F(TransportTest, HostAndDriverStatusDecideTheResult)
{
    for (const SentStatusCase &c : kStatusCases) {
        SCOPED_TRACE(testing::Message() << "host " << c.hostStatus << " driver " << c.driverStatus);
        const TraceRecorder traces;
        ScsiDouble disk({SgReply{.status = 0x18,
                                 .hostStatus = c.hostStatus,
                                 .driverStatus = c.driverStatus,
                                 .sense = bytesOf("70 00 05 00 00 00 00 0a")}});
        request.sense_len = 0;
        EXPECT_EQ(_sg_IoctlCommon(3, &request), c.result);
        const bool good = c.result == 0;
        const bool driverSense = c.text != nullptr && std::string(c.text) == "include driver sense data";
        EXPECT_EQ(request.scsi_status, driverSense ? 2 : 0x18);
        EXPECT_EQ(request.sense_len, good ? 8U : 0U);
        const std::string exit = "_OUT_ [" + std::to_string(c.result) + "]";
        if (c.text == nullptr) {
            EXPECT_THAT(traces.texts(), ElementsAre("_IN_", exit));
        } else {
            EXPECT_THAT(traces.texts(), ElementsAre("_IN_", c.text, exit));
            EXPECT_TRUE(traces.has(c.level, c.text, "_sg_IoctlCommon"));
        }
    }
}

TEST_F(TransportTest, HostStatus3IsATimeoutAnd7AnIoError)
{
    ScsiDouble disk({SgReply{.hostStatus = 3}, SgReply{.hostStatus = 7}});
    EXPECT_EQ(_sg_IoctlCommon(3, &request), -110);
    EXPECT_EQ(_sg_IoctlCommon(3, &request), -5);
}

TEST_F(TransportTest, DriverSenseIsCheckConditionWithItsLength)
{
    ScsiDouble disk({SgReply{.status = 0, .driverStatus = 0x08, .sense = std::vector<uint8_t>(18, 0x70)}});
    EXPECT_EQ(_sg_IoctlCommon(3, &request), 0);
    EXPECT_EQ(request.scsi_status, 2);
    EXPECT_EQ(request.sense_len, 18U);
}

TEST_F(TransportTest, CheckConditionWithGoodTransportIsNotJudged)
{
    ScsiDouble disk({SgReply{.status = 2, .sense = std::vector<uint8_t>(22, 0x72)}});
    EXPECT_EQ(_sg_IoctlCommon(3, &request), 0);
    EXPECT_EQ(request.scsi_status, 2);
    EXPECT_EQ(request.sense_len, 22U);
}

TEST(JudgeTransport, AnyHostStatusDecidesBeforeTheDriver)
{
    for (unsigned host = 1; host < 0x10000; ++host) {
        const TransportOutcome expected = host < 4 ? TransportOutcome::kHostTimeout : TransportOutcome::kHostError;
        ASSERT_EQ(judgeTransport(host, 0), expected);
        ASSERT_EQ(judgeTransport(host, 8), expected);
    }
}

TEST(UseSgIo, IsOnAtFirst)
{
    EXPECT_EQ(use_sg_io, 1);
}

} // namespace
