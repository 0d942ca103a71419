// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/pages.h"

#include "support/ioctl_double.h"
#include "support/smart_fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <span>
#include <unistd.h>
#include <utility>

using namespace tavstrg;

namespace {

using Bytes = std::vector<uint8_t>;
using testing::Each;
using testing::ElementsAre;

constexpr int kPagesFd = 3;
constexpr uint8_t kUntouchedByte = 0x11;
constexpr uint8_t kFromDisk = 0xA5;

const char *const kReply6 = "17 00 10 08 00 02 00 00 00 00 02 00 dc 0a 18 f6 00 00 00 00 00 00 00 00";
const char *const kReply10 = "01 1a 00 10 00 00 00 08 00 02 00 00 00 00 02 00 dc 0a 18 f6 00 00 00 00 00 00 00 00";

// Each command: how it is called, and what must be on the wire.
struct PageCommand {
    const char *name;
    int (*send)(int fd, uint8_t *pBuf);
    const char *reply; // in the buffer before
    const char *cdb;
    int direction;
    unsigned length;     // through SG_IO
    uint32_t in, out;    // of SCSI_IOCTL_SEND_COMMAND
    const char *list;    // its parameter list
    size_t copied;       // of its reply
    const char *failure; // its trace
};

const PageCommand kCommands[] = {
    {"modesense", [](int fd, uint8_t *p) { return modesense(fd, 0x1C, 0, p, 200); }, "", "1a 00 1c 00 ff 00",
     SG_DXFER_FROM_DEV, 200, 0, 255, "", 255, "! ioctl result = -1 errno=[5]"},
    {"modesense10", [](int fd, uint8_t *p) { return modesense10(fd, 0x1C, 0, p, 200); }, "",
     "5a 00 1c 00 00 00 00 00 c8 00", SG_DXFER_FROM_DEV, 200, 0, 200, "", 255, "! ioctl MODE_SENSE_10: failed"},
    {"modeselect", [](int fd, uint8_t *p) { return modeselect(fd, 0x1C, 1, p, 255); }, kReply6, "15 11 00 00 18 00",
     SG_DXFER_TO_DEV, 24, 24, 0, "00 00 00 08 00 00 00 00 00 00 02 00 1c 0a 18 f6 00 00 00 00 00 00 00 00", 0,
     "! ioctl result = -1 errno=[5]"},
    {"modeselect10", [](int fd, uint8_t *p) { return modeselect10(fd, 0x1C, 1, p, 255); }, kReply10,
     "55 11 00 00 00 00 00 00 1c 00", SG_DXFER_TO_DEV, 255, 28, 0,
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 dc 0a 18 f6 00 00 00 00 00 00 00 00", 0,
     "! ioctl MODE_SELECT_10 : failed"},
    {"logsense", [](int fd, uint8_t *p) { return logsense(fd, 0x2F, p, 252); }, "", "4d 00 6f 00 00 00 00 00 fc 00",
     SG_DXFER_FROM_DEV, 252, 0, 252, "", 244, "! ioctl result = -1 errno=[5]"},
    {"requestsense", [](int fd, uint8_t *p) { return requestsense(fd, p); }, "", "03 00 00 00 ff 00", SG_DXFER_FROM_DEV,
     255, 0, 255, "", 255, nullptr},
};

class PageCommands : public testing::TestWithParam<PageCommand> {
protected:
    PageCommands()
    {
        buffer.fill(kUntouchedByte);
        const Bytes reply = bytesOf(GetParam().reply);
        std::copy(reply.begin(), reply.end(), buffer.begin());
    }
    int send(int fd = kPagesFd) { return GetParam().send(fd, buffer.data()); }
    // Without the entry line, which contains the arguments.
    Lines traced() const
    {
        Lines lines = leveled(traces, GetParam().name);
        EXPECT_EQ(lines.front().substr(0, 4), "_IN_");
        lines.erase(lines.begin());
        return lines;
    }

    std::array<uint8_t, 1024> buffer;
    TraceRecorder traces;
};

INSTANTIATE_TEST_SUITE_P(All, PageCommands, testing::ValuesIn(kCommands),
                         [](const auto &c) { return std::string(c.param.name); });

TEST_P(PageCommands, GoThroughSgIoWithoutSenseBuffer)
{
    ScsiDouble disk({SgReply{}});
    EXPECT_EQ(send(), 0);
    ASSERT_EQ(disk.sent.size(), 1U);
    const sg_io_hdr &header = disk.sent[0].header;
    EXPECT_EQ(disk.sent[0].cdb, bytesOf(GetParam().cdb));
    EXPECT_EQ(header.dxfer_direction, GetParam().direction);
    EXPECT_EQ(header.dxfer_len, GetParam().length);
    EXPECT_EQ(header.dxferp, buffer.data());
    EXPECT_EQ(header.mx_sb_len, 0);
    EXPECT_EQ(header.sbp, nullptr);
    EXPECT_EQ(header.timeout, 6000U);
    EXPECT_THAT(traced(), ElementsAre("use SG_IO command for ioctl...", "_OUT_ status=[0]"));
}

TEST_P(PageCommands, DoNotJudgeTheScsiStatusOfSgIo)
{
    ScsiDouble disk({SgReply{.status = 2, .driverStatus = 8}});
    EXPECT_EQ(send(), 0);
}

TEST_P(PageCommands, FoldEveryFailedTransportIntoMinus1)
{
    const std::pair<SgReply, int> failures[] = {{SgReply{.error = ENOTTY}, ENOTTY},
                                                {SgReply{.hostStatus = 3}, ETIMEDOUT},
                                                {SgReply{.hostStatus = 7}, EIO},
                                                {SgReply{.driverStatus = 6}, ETIMEDOUT}};
    for (const auto &[reply, error] : failures) {
        traces.clear();
        ScsiDouble disk({reply});
        errno = 0;
        EXPECT_EQ(send(), -1);
        EXPECT_EQ(errno, error);
        EXPECT_THAT(traced(), ElementsAre("use SG_IO command for ioctl...", "! _OUT_ status=[-1]"));
    }
}

TEST_P(PageCommands, RefuseNoDescriptorAndNoBufferWithoutSending)
{
    ScsiDouble disk({SgReply{}});
    EXPECT_EQ(send(-1), -1);
    EXPECT_EQ(traced(), Lines{"! _OUT_ device == -1"});
    traces.clear();
    EXPECT_EQ(GetParam().send(kPagesFd, nullptr), -1);
    EXPECT_EQ(traced(), Lines{"! _OUT_ pBuf is NULL"});
    traces.clear();
    EXPECT_EQ(GetParam().send(-1, nullptr), -1); // the descriptor comes first
    EXPECT_EQ(traced(), Lines{"! _OUT_ device == -1"});
    EXPECT_TRUE(disk.sent.empty());
}

// The older way: notes the whole buffer, brings as many bytes as are wanted.
struct LegacyDisk {
    explicit LegacyDisk(int failure = 0) : error(failure) {}
    int take(unsigned long request, void *argument)
    {
        EXPECT_EQ(request, 1U);
        auto *bytes = static_cast<uint8_t *>(argument);
        const size_t size = (bytes[8] >> 5) == 0 ? 269 : 273;
        sent.emplace_back(bytes, bytes + size);
        uint32_t out = 0;
        std::memcpy(&out, bytes + 4, 4);
        EXPECT_LE(out, size - 8);
        if (error == 0) {
            std::memset(bytes + 8, kFromDisk, out);
        }
        return error;
    }
    const int error;
    std::vector<Bytes> sent;
    IoctlDouble ioctl{[this](unsigned long request, void *argument) { return take(request, argument); }};
};

Bytes legacyBytes(const PageCommand &c)
{
    const Bytes cdb = bytesOf(c.cdb);
    const Bytes list = bytesOf(c.list);
    Bytes buffer(8 + cdb.size() + 255);
    std::memcpy(buffer.data(), &c.in, 4);
    std::memcpy(buffer.data() + 4, &c.out, 4);
    std::copy(list.begin(), list.end(), std::copy(cdb.begin(), cdb.end(), buffer.begin() + 8));
    return buffer;
}

TEST_P(PageCommands, GoThroughSendCommandWhereSgIoIsNotUsed)
{
    const SgIo way(false);
    LegacyDisk disk;
    const auto before = buffer;
    EXPECT_EQ(send(), 0);
    EXPECT_THAT(disk.sent, ElementsAre(legacyBytes(GetParam())));
    const size_t copied = GetParam().copied;
    const size_t brought = std::min<size_t>(copied, GetParam().out);
    EXPECT_THAT(std::span(buffer).first(brought), Each(kFromDisk));
    EXPECT_THAT(std::span(buffer).subspan(brought, copied - brought), Each(0));
    // modeselect changes two bytes of the reply passed to it; no data are returned
    EXPECT_TRUE(std::equal(buffer.begin() + std::max<long>(long(copied), 17), buffer.end(),
                           before.begin() + std::max<long>(long(copied), 17)));
    EXPECT_THAT(traced(), ElementsAre("use SCSI_IOCTL_SEND_COMMAND...", "_OUT_ status=[0]"));
}

TEST_P(PageCommands, CopyWhatThereIsAlsoWhenTheIoctlFails)
{
    const SgIo way(false);
    LegacyDisk disk(EIO);
    errno = 0;
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(errno, EIO);
    if (GetParam().copied != 0) {
        EXPECT_THAT(std::span(buffer).first(GetParam().copied), Each(0));
        EXPECT_THAT(std::span(buffer).subspan(GetParam().copied), Each(kUntouchedByte));
    }
    Lines expected{"use SCSI_IOCTL_SEND_COMMAND..."};
    if (GetParam().failure != nullptr) {
        expected.emplace_back(GetParam().failure);
    }
    expected.emplace_back("! _OUT_ status=[-1]");
    EXPECT_EQ(traced(), expected);
}

TEST(Modesense, TakesLengthsOf0To255)
{
    std::array<uint8_t, 255> buffer{};
    for (const auto &[name, sense] : {std::pair("modesense", &modesense), std::pair("modesense10", &modesense10)}) {
        for (const bool sg : {true, false}) {
            const SgIo way(sg);
            int requests = 0;
            const TraceRecorder traces;
            const IoctlDouble disk([&requests](unsigned long, void *) { return ++requests, 0; });
            EXPECT_EQ(sense(kPagesFd, 0x1C, 0, buffer.data(), 256), -1);
            EXPECT_EQ(sense(kPagesFd, 0x1C, 0, buffer.data(), -1), -1);
            EXPECT_EQ(requests, 0);
            EXPECT_EQ(leveled(traces, name)[1], "! _OUT_ (-1)");
            EXPECT_EQ(sense(kPagesFd, 0x1C, 0, buffer.data(), 0), 0);
            EXPECT_EQ(sense(kPagesFd, 0x1C, 0, buffer.data(), 255), 0);
            EXPECT_EQ(requests, 2);
        }
    }
}

TEST(Modeselect, ChangesTheReplyThatItSends)
{
    Bytes six = bytesOf(kReply6);
    Bytes ten = bytesOf(kReply10);
    six.resize(255, kUntouchedByte);
    ten.resize(255, kUntouchedByte);
    Bytes sixAfter = six;
    Bytes tenAfter = ten;
    sixAfter[0] = tenAfter[0] = 0;
    sixAfter[12] = 0x1C; // PS and SPF are cleared by the 6-byte command alone
    ScsiDouble disk({SgReply{}});
    EXPECT_EQ(modeselect(kPagesFd, 0x1C, 0, six.data(), 255), 0);
    EXPECT_EQ(modeselect10(kPagesFd, 0x1C, 0, ten.data(), 255), 0);
    EXPECT_EQ(six, sixAfter);
    EXPECT_EQ(ten, tenAfter);
    sixAfter.resize(24);
    EXPECT_EQ(disk.sent[0].dataBefore, sixAfter);
    EXPECT_EQ(disk.sent[1].dataBefore, tenAfter); // all of the buffer, the low byte of the length still 1a
}

struct LimitCase {
    const char *name;
    int (*send)(int fd, int pagenum, int sp, uint8_t *pBuf, int bufLen);
    const char *text;
    size_t lengthAt, offset;
};

TEST(Modeselect, APageThatDoesNotEndInTheBufferIsRefused)
{
    const LimitCase cases[] = {{"modeselect", modeselect, "! _OUT_ bufLen limit", 3, 12},
                               {"modeselect10", modeselect10, "! _OUT_ (-1)", 7, 16}};
    for (const LimitCase &c : cases) {
        for (const bool sg : {true, false}) {
            const SgIo way(sg);
            Bytes reply(255);
            reply[c.lengthAt] = 8;
            const auto toTheEnd = static_cast<uint8_t>(255 - c.offset - 2);
            int requests = 0;
            const IoctlDouble disk([&requests](unsigned long, void *) { return ++requests, 0; });
            reply[c.offset + 1] = toTheEnd;
            EXPECT_EQ(c.send(kPagesFd, 0x1C, 0, reply.data(), 255), 0);
            reply[c.offset + 1] = toTheEnd + 1;
            const TraceRecorder traces;
            EXPECT_EQ(c.send(kPagesFd, 0x1C, 0, reply.data(), 255), -1);
            EXPECT_EQ(c.send(kPagesFd, 0x1C, 0, reply.data(), static_cast<int>(c.offset) + 2), -1);
            EXPECT_EQ(c.send(kPagesFd, 0x1C, 0, reply.data(), 0), -1);
            EXPECT_EQ(c.send(kPagesFd, 0x1C, 0, reply.data(), -5), -1);
            EXPECT_EQ(requests, 1);
            const Lines lines = leveled(traces, c.name);
            EXPECT_EQ(std::count(lines.begin(), lines.end(), c.text), 4);
        }
    }
}

TEST(Modeselect, WhatTheOlderWayHasNoRoomForIsRefusedThere)
{
    Bytes reply(400);
    reply[7] = 200;
    reply[209] = 60;
    int requests = 0;
    const IoctlDouble disk([&requests](unsigned long, void *) { return ++requests, 0; });
    const SgIo way(false);
    EXPECT_EQ(modeselect10(kPagesFd, 0x1C, 0, reply.data(), 400), -1);
    EXPECT_EQ(requests, 0);
    use_sg_io = 1;
    EXPECT_EQ(modeselect10(kPagesFd, 0x1C, 0, reply.data(), 400), 0);
}

TEST(Logsense, LengthsThatCannotBeAreHarmless)
{
    std::array<uint8_t, 1024> buffer{};
    const SgIo way(false);
    LegacyDisk disk;
    for (const int length : {-1, 0, 266, 70000}) {
        EXPECT_EQ(logsense(kPagesFd, 0, buffer.data(), length), 0);
    }
    EXPECT_EQ(disk.sent.size(), 4U);
}

// ---- through a simulated disk: what the older ioctl returns ----

TEST(Modesense, ReturnsWhatTheOlderIoctlReturns)
{
    const SgIo way(false);
    for (const auto &[kernel, result] : {std::pair("2.6.8", 2), std::pair("2.4.21", 0x08000002)}) {
        const sim::Machine machine(std::string(R"({"kernel": ")") + kernel +
                                   R"(", "hosts": [{"devices": [{"exceptions": {"supported": false}}]}]})");
        const int fd = open("/dev/sda", O_RDWR);
        std::array<uint8_t, 255> buffer{};
        const TraceRecorder traces;
        EXPECT_EQ(modesense(fd, 0x1C, 0, buffer.data(), 255), result);
        EXPECT_EQ(buffer[0], 0x70); // sense data
        EXPECT_EQ(buffer[2], 5);
        EXPECT_EQ(leveled(traces, "modesense").back(), "! _OUT_ status=[" + std::to_string(result) + "]");
        EXPECT_EQ(leveled(traces, "modesense").size(), 3U);
        close(fd);
    }
}

} // namespace
