// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/wear.h"

#include "runtime/trace.h"
#include "support/ioctl_double.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tavstrg;

namespace {

constexpr uint16_t kUntouched = 65535;

struct Attribute {
    size_t slot;
    std::vector<uint8_t> bytes; // from the identifier on
};

std::vector<uint8_t> smartData(const std::vector<Attribute> &attributes)
{
    std::vector<uint8_t> data(512);
    for (const Attribute &attribute : attributes) {
        std::copy(attribute.bytes.begin(), attribute.bytes.end(),
                  data.begin() + 2 + static_cast<std::ptrdiff_t>(attribute.slot * 12));
    }
    return data;
}

struct FigureCase {
    const char *name;
    std::vector<Attribute> attributes;
    uint8_t id;
    uint16_t figure;
};

void PrintTo(const FigureCase &figure, std::ostream *out)
{
    *out << figure.name;
}

const FigureCase kFigures[] = {
    {"TheCurrentValue", {{0, {231, 0x13, 0x02, 87, 80, 1, 2, 3, 4, 5, 6, 10}}}, 231, 87},
    {"TheLastEntry", {{29, {231, 0, 0, 42}}}, 231, 42},
    {"BehindTheLastEntryIsNone", {{30, {231, 0, 0, 42}}}, 231, kUntouched},
    {"TheFirstOfTwo", {{3, {231, 0, 0, 55}}, {4, {231, 0, 0, 44}}}, 231, 55},
    {"Zero", {{0, {231, 0, 0, 0}}}, 231, 0},
    {"AnAttributeThatTheDriveLacks", {{0, {9, 0, 0, 100}}, {1, {194, 0, 0, 60}}}, 231, kUntouched},
    {"WearOfNothingUsed", {{0, {230, 0, 0, 9, 9, 77, 0, 77, 77, 77, 77}}}, 230, 100},
    {"WearOfOnePercent", {{0, {230, 0, 0, 9, 9, 77, 1, 77, 77, 77, 77}}}, 230, 99},
    {"WearOfAllUsed", {{0, {230, 0, 0, 9, 9, 77, 100, 77, 77, 77, 77}}}, 230, 0},
    {"WearBeyondAllWraps", {{0, {230, 0, 0, 9, 9, 77, 101, 77, 77, 77, 77}}}, 230, 65535},
    {"WearOf255Wraps", {{0, {230, 0, 0, 9, 9, 77, 255, 77, 77, 77, 77}}}, 230, 65381},
};

class Figures : public testing::TestWithParam<FigureCase> {};

TEST_P(Figures, ComeFromTheAttribute)
{
    ScsiDouble disk({{.data = smartData(GetParam().attributes)}});
    const NodeFile node;
    TraceRecorder trace;
    uint16_t endurance = kUntouched;
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), GetParam().id, &endurance), 0);
    EXPECT_EQ(endurance, GetParam().figure);
    EXPECT_TRUE(
        trace.has(kDetail, "_OUT_ endurance=[" + std::to_string(GetParam().figure) + "] ", "GetLifeSpanInfoIoctl"));
}

INSTANTIATE_TEST_SUITE_P(All, Figures, testing::ValuesIn(kFigures),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(FindSmartAttribute, LooksAtNothingBehindTheData)
{
    const std::vector<uint8_t> data = smartData({{0, {1, 0, 0, 11}}, {1, {2, 0, 0, 22}}});
    for (size_t length = 0; length <= 2 + 12 * 2; ++length) {
        SmartAttribute attribute{};
        const std::vector<uint8_t> there(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(findSmartAttribute(there, 1, attribute), length >= 14) << length;
        EXPECT_EQ(findSmartAttribute(there, 2, attribute), length >= 26) << length;
    }
}

TEST(GetLifeSpanInfoIoctlTest, SendsSmartReadDataByteForByte)
{
    ScsiDouble disk({{.data = smartData({})}});
    const NodeFile node;
    uint16_t endurance = kUntouched;
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), 231, &endurance), 0);
    ASSERT_EQ(disk.sent.size(), 1U);
    EXPECT_EQ(disk.sent[0].cdb, bytesOf("85 08 0D 00 D0 00 00 00 00 00 4F 00 C2 00 B0 00"));
    const sg_io_hdr &header = disk.sent[0].header;
    EXPECT_EQ(header.interface_id, 'S');
    EXPECT_EQ(header.dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(header.cmd_len, 16);
    EXPECT_EQ(header.dxfer_len, 512U);
    EXPECT_EQ(disk.sent[0].dataBefore, std::vector<uint8_t>(512)); // cleared
    EXPECT_EQ(header.mx_sb_len, 0);
    EXPECT_EQ(header.sbp, nullptr);
    EXPECT_EQ(header.timeout, 0U);
    EXPECT_EQ(header.iovec_count, 0);
    EXPECT_EQ(header.flags, 0U);
    EXPECT_EQ(header.pack_id, 0);
    EXPECT_EQ(header.usr_ptr, nullptr);
    EXPECT_EQ(disk.modes(), std::vector<int>{O_RDONLY});
}

TEST(GetLifeSpanInfoIoctlTest, TracesTheAttribute)
{
    ScsiDouble disk(
        {{.data = smartData({{0, {5, 0x13, 0x02, 87, 80, 1, 2, 3, 4, 5, 0xAB, 10}}, {1, {230, 0, 0, 7}}})}});
    const NodeFile node;
    uint16_t endurance = kUntouched;
    TraceRecorder trace;
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), 5, &endurance), 0);
    EXPECT_EQ(trace.textsOf("GetLifeSpanInfoIoctl"),
              (std::vector<std::string>{"_IN_", "#### SMART AttrID   =005 ####", "#### Flags          =0213 ####",
                                        "#### Current Value  =087 ####", "#### Worst Value    =080 ####",
                                        "#### Raw            =01 02 03 04 05 ab ####", "#### Threshold      =010 ####",
                                        "#### endurance=087         ####", "_OUT_ endurance=[87] "}));
    for (const TraceRecord &record : trace.records()) {
        EXPECT_EQ(record.level, kDetail) << record.text;
    }
    trace.clear();
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), 230, &endurance), 0);
    EXPECT_TRUE(trace.has(kDetail, "#### SMART AttrID   =230 ####"));
    EXPECT_FALSE(trace.has(kDetail, "#### endurance=100         ####"));
}

TEST(GetLifeSpanInfoIoctlTest, DoesNotLookAtTheStatusOfTheCommand)
{
    ScsiDouble disk({{.status = 2,
                      .hostStatus = 7,
                      .driverStatus = 8,
                      .sense = bytesOf("72 0B 00 00"),
                      .data = smartData({{0, {231, 0, 0, 33}}})}});
    const NodeFile node;
    uint16_t endurance = kUntouched;
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), 231, &endurance), 0);
    EXPECT_EQ(endurance, 33);
}

TEST(GetLifeSpanInfoIoctlTest, AFailingCommandLeavesTheFigure)
{
    ScsiDouble disk({SgReply{.error = EIO}});
    const NodeFile node;
    const int before = openDescriptors();
    uint16_t endurance = kUntouched;
    TraceRecorder trace;
    EXPECT_EQ(GetLifeSpanInfoIoctl(node.path(), 231, &endurance), -1);
    EXPECT_EQ(endurance, kUntouched);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ ioctl SG_IO Failure!! Input/output error", "GetLifeSpanInfoIoctl"));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(GetLifeSpanInfoIoctlTest, ADeviceThatDoesNotOpenIsNotAsked)
{
    ScsiDouble disk({SgReply{}});
    uint16_t endurance = kUntouched;
    TraceRecorder trace;
    EXPECT_EQ(GetLifeSpanInfoIoctl("/nowhere/sda", 231, &endurance), -1);
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ open err : No such file or directory", "GetLifeSpanInfoIoctl"));
    const std::string fifo = testing::TempDir() + "tavlifefifo" + std::to_string(::getpid());
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(GetLifeSpanInfoIoctl(fifo.c_str(), 231, &endurance), -1);
    ::unlink(fifo.c_str());
    EXPECT_TRUE(disk.sent.empty());
    EXPECT_EQ(endurance, kUntouched);
}

TEST(GetLifeSpanInfoIoctlTest, ChecksItsArgumentsInTheirOrder)
{
    TraceRecorder trace;
    EXPECT_EQ(GetLifeSpanInfoIoctl(nullptr, 0, nullptr), -1);
    EXPECT_EQ(GetLifeSpanInfoIoctl("/dev/sda", 0, nullptr), -1);
    EXPECT_EQ(GetLifeSpanInfoIoctl("/dev/sda", 1, nullptr), -1);
    EXPECT_EQ(trace.texts(),
              (std::vector<std::string>{"_IN_", "_OUT_ param(devName) Failure!!", "_IN_",
                                        "_OUT_ param(attID) Failure!!", "_IN_", "_OUT_ param(endurance) Failure!!"}));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(devName) Failure!!"));
    EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(attID) Failure!!"));
}

} // namespace
