// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/pages.h"
#include "support/ioctl_double.h"
#include "support/smart_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

using namespace tavstrg;

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr int kFd = 3;

// ---- scsiCDBModeSelect ----

struct SizeCase {
    const char *name;
    bool sg;
    const char *fields;
    int result, length;
    Lines wire;
    const char *exit;
};

const std::string kSixByteSense = "1a 00 1c 00 ff 00";
const std::string kTenByteSense = "5a 00 1c 00 00 00 00 00 ff 00";

TEST(ScsiCDBModeSelect, TriesTheShortCommandFirst)
{
    const SizeCase cases[] = {
        {"answers 6", true, "", 0, 0, {"sg " + kSixByteSense}, "_OUT_ (0). *modese_len=[0]"},
        {"refuses 6 through SG_IO",
         true,
         R"("exceptions": {"modeSense6": false})",
         0,
         0,
         {"sg " + kSixByteSense},
         "_OUT_ (0). *modese_len=[0]"},
        {"loses 6 through SG_IO",
         true,
         R"("faults": [{"on": "modeSense", "nth": 1, "hostStatus": 7}])",
         0,
         1,
         {"sg " + kSixByteSense, "sg " + kTenByteSense},
         "_OUT_ (0). *modese_len=[1]"},
        {"answers 6 the older way", false, "", 0, 0, {"legacy " + kSixByteSense}, "_OUT_ (0). *modese_len=[0]"},
        {"refuses 6 the older way",
         false,
         R"("exceptions": {"modeSense6": false})",
         0,
         1,
         {"legacy " + kSixByteSense, "legacy " + kTenByteSense},
         "_OUT_ (0). *modese_len=[1]"},
        {"refuses both",
         false,
         R"("exceptions": {"supported": false})",
         -1,
         2,
         {"legacy " + kSixByteSense, "legacy " + kTenByteSense},
         "! _OUT_ (-1). *modese_len=[2]"},
        {"cannot be opened", true, R"("openError": "EBUSY")", -1, 77, {}, "! _OUT_ (-1)"},
    };
    for (const SizeCase &c : cases) {
        SCOPED_TRACE(c.name);
        const SgIo way(c.sg);
        const sim::Machine machine(oneDisk(kDevKindScsi, c.fields));
        const HardDiskEntry disk = freshDisk("/dev/sda", kDevKindScsi);
        const TraceRecorder traces;
        int length = 77;
        EXPECT_EQ(scsiCDBModeSelect(&disk, &length), c.result);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(wire(machine), c.wire);
        EXPECT_THAT(leveled(traces, "scsiCDBModeSelect"), ElementsAre("_IN_", c.exit));
        EXPECT_EQ(machine.openDescriptors(), 0);
    }
}

TEST(ScsiCDBModeSelect, RefusesNulls)
{
    const TraceRecorder traces;
    const HardDiskEntry disk{};
    int length = 77;
    EXPECT_EQ(scsiCDBModeSelect(nullptr, &length), -1);
    EXPECT_EQ(scsiCDBModeSelect(&disk, nullptr), -1);
    EXPECT_EQ(scsiCDBModeSelect(nullptr, nullptr), -1);
    EXPECT_THAT(leveled(traces, "scsiCDBModeSelect"),
                ElementsAre("_IN_", "! _OUT_ hdt is NULL", "_IN_", "! _OUT_ modese_len is NULL", "_IN_",
                            "! _OUT_ hdt is NULL"));
    EXPECT_EQ(length, 77);
}

// ---- scsiModePageOffset ----

struct PageOffsetCase {
    const char *reply;
    int len, ten, offset;
    Lines lines; // between entry and exit
};

TEST(ScsiModePageOffset, TracesWhyThereIsNone)
{
    const PageOffsetCase cases[] = {
        {"17 00 10 08 0 0 0 0 0 0 0 0 1c 0a", 14, 0, 12, {}},
        {"17 00 10 08 0 0 0 0 0 0 0 0 1c 0a", 14, 2, 12, {}}, // any value but 1
        {"03 00 00 00 1c 0a", 6, 0, -1, {"! (offset + 2) > resp_len"}},
        {"ff 00 00 00 1c 0a", 5, 0, -1, {"! (offset + 2) > len"}},
        {"ff 00 00 00 1c 0a", -3, 0, -1, {"! (offset + 2) > len"}},
        {"00 1a 0 0 0 0 0 08 0 0 0 0 0 0 0 0 1c 0a", 18, 1, 16, {"offset=16 resp_len=28 bd_len=8"}},
        {"00 03 0 0 0 0 0 00 1c 0a", 10, 1, -1, {"offset=8 resp_len=5 bd_len=0", "! (offset + 2) > resp_len"}},
        {"ff ff 0 0 0 0 ff ff 1c 0a", 10, 1, -1, {"offset=65543 resp_len=65537 bd_len=65535", "! (offset + 2) > len"}},
    };
    for (const PageOffsetCase &c : cases) {
        const TraceRecorder traces;
        const std::vector<uint8_t> reply = bytesOf(c.reply);
        EXPECT_EQ(scsiModePageOffset(reply.data(), c.len, c.ten), c.offset) << c.reply;
        Lines lines = leveled(traces, "scsiModePageOffset");
        EXPECT_EQ(lines.back(), c.offset < 0 ? "! _OUT_ (-1)" : "_OUT_ offset=[" + std::to_string(c.offset) + "]");
        EXPECT_EQ(Lines(lines.begin() + 1, lines.end() - 1), c.lines) << c.reply;
    }
    EXPECT_EQ(scsiModePageOffset(nullptr, 255, 0), -1);
}

// ---- scsiGetSupportedLogPages ----

TEST(ScsiGetSupportedLogPages, FindsTheExceptionsPage)
{
    for (const auto &[log, found] : {std::pair("true", 1), std::pair("false", 0)}) {
        const sim::Machine machine(oneDisk(kDevKindScsi, std::string(R"("exceptions": {"logPage": )") + log + "}"));
        const int fd = open("/dev/sda", O_RDWR);
        int page = 77;
        const TraceRecorder traces;
        EXPECT_EQ(scsiGetSupportedLogPages(fd, &page), 0);
        EXPECT_EQ(page, found);
        EXPECT_EQ(wire(machine), Lines{"sg 4d 00 40 00 00 00 00 00 fc 00"});
        EXPECT_THAT(leveled(traces, "scsiGetSupportedLogPages"), ElementsAre("_IN_", "_OUT_ ret=[0]"));
        close(fd);
    }
}

TEST(ScsiGetSupportedLogPages, APageBeyondTheListsEndIsNotSeen)
{
    ScsiDouble disk(
        {SgReply{.data = bytesOf("00 00 00 02 00 0d 2f")}, SgReply{.data = bytesOf("00 00 00 03 00 0d 2f")}});
    int page = 77;
    EXPECT_EQ(scsiGetSupportedLogPages(kFd, &page), 0);
    EXPECT_EQ(page, 0);
    EXPECT_EQ(scsiGetSupportedLogPages(kFd, &page), 0);
    EXPECT_EQ(page, 1);
    EXPECT_EQ(disk.sent[0].header.dxfer_len, 252U);
    EXPECT_THAT(disk.sent[0].dataBefore, Each(0));
}

TEST(ScsiGetSupportedLogPages, AListThatCannotBeReadHasNoPage)
{
    ScsiDouble disk({SgReply{.error = EIO, .data = bytesOf("00 00 00 01 2f")}});
    int page = 77;
    EXPECT_EQ(scsiGetSupportedLogPages(kFd, &page), 0);
    EXPECT_EQ(page, 0);
}

TEST(ScsiGetSupportedLogPages, RefusesBadArguments)
{
    ScsiDouble disk({SgReply{}});
    const TraceRecorder traces;
    int page = 77;
    EXPECT_EQ(scsiGetSupportedLogPages(-1, &page), -1);
    EXPECT_EQ(scsiGetSupportedLogPages(kFd, nullptr), -1);
    EXPECT_THAT(leveled(traces, "scsiGetSupportedLogPages"),
                ElementsAre("_IN_", "! _OUT_ device == -1", "_IN_", "! _OUT_ pSmartPage is NULL"));
    EXPECT_EQ(page, 77);
    EXPECT_TRUE(disk.sent.empty());
}

} // namespace
