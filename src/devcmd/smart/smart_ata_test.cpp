// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/ata_command.h"
#include "devcmd/smart/smart_routines.h"
#include "support/ioctl_double.h"
#include "support/smart_fixture.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <span>
#include <tuple>

using namespace tavstrg;

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr uint64_t kAny = 9; // a value that no routine writes: the field is unchanged
constexpr int16_t kAnyPrediction = 9;

// ---- bytes ----

TEST(IdeSmart, RequestNumbersAreTheKernels)
{
    EXPECT_EQ(HDIO_DRIVE_CMD, 0x031F);
    EXPECT_EQ(HDIO_DRIVE_TASK, 0x031E);
}

TEST(IdeSmart, EveryByteIsRight)
{
    EXPECT_THAT(kIdeIdentify, ElementsAre(0xEC, 0, 0, 1));
    EXPECT_THAT(kIdeIdentifyPacket, ElementsAre(0xA1, 0, 0, 1));
    EXPECT_THAT(kIdeSmartEnable, ElementsAre(0xB0, 0x01, 0xD8, 0x00));
    EXPECT_THAT(kIdeSmartDisable, ElementsAre(0xB0, 0x01, 0xD9, 0x00));
    EXPECT_THAT(kIdeSmartReadData, ElementsAre(0xB0, 0x00, 0xD0, 0x01));
    EXPECT_THAT(kIdeSmartStatus, ElementsAre(0xB0, 0xDA, 0, 0, 0x4F, 0xC2, 0));
}

TEST(SmartPredictOfTask, OnlyTheExceededPairIsBad)
{
    for (unsigned mid = 0; mid < 256; ++mid) {
        for (unsigned high = 0; high < 256; ++high) {
            const DriveTask task{0x50, 0, 0, 0, static_cast<uint8_t>(mid), static_cast<uint8_t>(high), 0};
            ASSERT_EQ(smartPredictOfTask(task), mid == 0xF4 && high == 0x2C ? 1 : 0) << mid << ' ' << high;
        }
    }
}

TEST(SmartSupportOfIdentify, CountsWord82OnlyIfWord83IsValid)
{
    for (const unsigned valid : {0x0000U, 0x4000U, 0x8000U, 0xC000U}) {
        for (const unsigned other : {0x0000U, 0x3FFFU}) {
            for (const unsigned word82 : {0x0000U, 0x0001U, 0xFFFEU, 0xFFFFU}) {
                std::array<uint8_t, 512> block{};
                block[164] = static_cast<uint8_t>(word82);
                block[165] = static_cast<uint8_t>(word82 >> 8);
                block[166] = static_cast<uint8_t>(other);
                block[167] = static_cast<uint8_t>((valid | other) >> 8);
                const unsigned expected = valid != 0x4000 ? 1 : (word82 & 1) != 0 ? 2 : 3;
                EXPECT_EQ(smartSupportOfIdentify(block), expected) << std::hex << (valid | other) << ' ' << word82;
            }
        }
    }
}

// ---- routines on simulated disks ----

struct Routine {
    const char *name;
    uint16_t kind;
    void (*run)(HardDiskEntry *hdt);
};

const Routine kEnableAtapi{"enable_atapi_smart", kDevKindAta, enable_atapi_smart};
const Routine kEnableSata{"enable_sata_smart", kDevKindSata, enable_sata_smart};
const Routine kDisableAtapi{"disable_atapi_smart", kDevKindAta, disable_atapi_smart};
const Routine kDisableSata{"disable_sata_smart", kDevKindSata, disable_sata_smart};
const Routine kGetAtapi{"get_atapi_smart", kDevKindAta, get_atapi_smart};
const Routine kGetSata{"get_sata_smart", kDevKindSata, get_sata_smart};
const Routine kFetchIde{"fetch_ata_enable_disable", kDevKindAta,
                        [](HardDiskEntry *hdt) { EXPECT_EQ(fetch_ata_enable_disable(hdt), 0); }};
const Routine kFetchSata{"fetch_ata_enable_disable", kDevKindSata,
                         [](HardDiskEntry *hdt) { EXPECT_EQ(fetch_ata_enable_disable(hdt), 0); }};

struct RoutineCase {
    const char *name;
    const Routine *routine;
    const char *fields;
    uint64_t support, state;
    int16_t predict;
    const char *lines; // after entry, with | between them
    Lines sent;
};

std::string joined(const Lines &lines)
{
    std::string text;
    for (const std::string &line : lines) {
        text += (text.empty() ? "" : "|") + line;
    }
    return text;
}

const Lines kSentIdentifyIdeOn{kIdentify, kIdeOn};
const Lines kSentIdentify{kIdentify};
const Lines kSentIdentifyPacketIdeOn{kIdentify, kPacket, kIdeOn};
const Lines kSentIdentifyPacket{kIdentify, kPacket};
const Lines kSentIdentifySataOn{kIdentify, kSataOn};
const Lines kSentIdeOff{kIdeOff};
const Lines kSentSataOff{kSataOff};
const Lines kSentIdeStatus{kIdeStatus};
const Lines kSentSataStatus{kSataStatus};
const Lines kSentReadData{kReadData};

const char *const kNotOpened = R"("openError": "EBUSY")";

const RoutineCase kCases[] = {
    // enabling, IDE
    {"is enabled", &kEnableAtapi, "", 2, kAny, 9, "/dev/hda: support smart|/dev/hda: enable success|_OUT_",
     kSentIdentifyIdeOn},
    {"is not opened", &kEnableAtapi, kNotOpened, 1, kAny, 9, "! open device :/dev/hda failed, errno=[16]|_OUT_", {}},
    {"is no SMART disk", &kEnableAtapi, R"("identifyWords": {"82": 0, "83": 16384})", 3, kAny, 9,
     "/dev/hda: not support smart|_OUT_", kSentIdentify},
    {"identifies as packet device", &kEnableAtapi, R"("identifyBy": "packet")", 2, kAny, 9,
     "/dev/hda: support smart|/dev/hda: enable success|_OUT_", kSentIdentifyPacketIdeOn},
    {"is a packet device without SMART", &kEnableAtapi, R"("identifyBy": "packet", "identifyWords": {"82": 0})", 3,
     kAny, 9, "/dev/hda: not support smart|_OUT_", kSentIdentifyPacket},
    {"does not identify", &kEnableAtapi, R"("identifyBy": "none")", 1, kAny, 9,
     "! ioctl HDIO_DRIVE_CMD :/dev/hda failed, errno=[5]|_OUT_", kSentIdentifyPacket},
    {"tells nothing of words 82 and 83", &kEnableAtapi, R"("identifyWords": {"83": 0})", 2, kAny, 9,
     "/dev/hda: enable success|_OUT_", kSentIdentifyIdeOn},
    {"tells nothing and refuses", &kEnableAtapi, R"("identifyWords": {"83": 0}, "smart": {"canEnable": false})", 1,
     kAny, 9, "! ioctl HDIO_DRIVE_CMD :/dev/hda failed, errno=[5]|_OUT_", kSentIdentifyIdeOn},
    {"refuses: support stays as identified", &kEnableAtapi, R"("smart": {"canEnable": false})", 2, kAny, 9,
     "/dev/hda: support smart|! ioctl HDIO_DRIVE_CMD :/dev/hda failed, errno=[5]|_OUT_", kSentIdentifyIdeOn},
    // enabling, SATA
    {"is enabled", &kEnableSata, "", 2, kAny, 9, "/dev/sda: support smart|SATA SMART enable successed!|_OUT_",
     kSentIdentifySataOn},
    {"is not opened", &kEnableSata, kNotOpened, 1, kAny, 9, "! _OUT_ open device : [/dev/sda] failed.", {}},
    {"is no SMART disk", &kEnableSata, R"("identifyWords": {"82": 0, "83": 16384})", 3, kAny, 9,
     "/dev/sda: not support smart|_OUT_", kSentIdentify},
    {"identifies as packet device", &kEnableSata, R"("identifyBy": "packet", "identifyWords": {"82": 0})", 3, kAny, 9,
     "/dev/sda: not support smart|_OUT_", kSentIdentifyPacket},
    {"does not identify", &kEnableSata, R"("identifyBy": "none")", 1, kAny, 9,
     "! ioctl HDIO_DRIVE_CMD :/dev/sda failed, errno=[5]|_OUT_", kSentIdentifyPacket},
    {"tells nothing: support stays unknown", &kEnableSata, R"("identifyWords": {"83": 0})", 1, kAny, 9,
     "SATA SMART enable successed!|_OUT_", kSentIdentifySataOn},
    {"loses the command", &kEnableSata, R"("faults": [{"on": "smartEnable", "hostStatus": 3}])", 1, kAny, 9,
     "/dev/sda: support smart|! SATA SMART enable failed!|_OUT_", kSentIdentifySataOn},
    // disabling
    {"is disabled", &kDisableAtapi, "", kAny, kAny, 9, "_OUT_ disable device:[/dev/hda] success ", kSentIdeOff},
    {"is not opened",
     &kDisableAtapi,
     kNotOpened,
     kAny,
     kAny,
     9,
     "! open device :/dev/hda failed|_OUT_ disable device:[/dev/hda] success ",
     {}},
    {"refuses", &kDisableAtapi, R"("smart": {"supported": false})", kAny, kAny, 9,
     "! ioctl HDIO_DRIVE_CMD :/dev/hda failed\n|_OUT_ disable device:[/dev/hda] success ", kSentIdeOff},
    {"is disabled", &kDisableSata, "", kAny, kAny, 9, "SATA SMART disable successed!|_OUT_", kSentSataOff},
    {"is not opened", &kDisableSata, kNotOpened, kAny, kAny, 9, "! open device : /dev/sda failed.|_OUT_", {}},
    {"loses the command", &kDisableSata, R"("faults": [{"on": "smartDisable", "hostStatus": 7}])", kAny, kAny, 9,
     "! SATA SMART disable failed!|_OUT_", kSentSataOff},
    // the status
    {"is good", &kGetAtapi, "", kAny, kAny, 0, "_OUT_", kSentIdeStatus},
    {"fails", &kGetAtapi, R"("smart": {"failing": true})", kAny, kAny, 1, "_OUT_", kSentIdeStatus},
    {"answers another pair", &kGetAtapi, R"("smart": {"status": [244, 194]})", kAny, kAny, 0, "_OUT_", kSentIdeStatus},
    {"is not opened", &kGetAtapi, kNotOpened, 1, kAny, 9, "! open device :/dev/hda failed|_OUT_", {}},
    {"refuses", &kGetAtapi, R"("smart": {"enabled": false})", 1, kAny, 9,
     "! ioctl HDIO_DRIVE_TASK :/dev/hda failed|_OUT_", kSentIdeStatus},
    {"is good", &kGetSata, "", kAny, kAny, 0, "sata SMART status is OK!|_OUT_", kSentSataStatus},
    {"fails", &kGetSata, R"("smart": {"failing": true})", kAny, kAny, 1, "sata SMART status is WARNING!|_OUT_",
     kSentSataStatus},
    {"is not opened", &kGetSata, kNotOpened, 1, kAny, 9, "! open device : /dev/sda failed.|_OUT_", {}},
    {"answers another pair", &kGetSata, R"("smart": {"status": [244, 194]})", 1, kAny, -1,
     "! ERROR: get sata SMART status failed!|_OUT_", kSentSataStatus},
    {"loses the command", &kGetSata, R"("faults": [{"on": "smartStatus", "errno": "EIO"}])", 1, kAny, -1,
     "! ERROR: get sata SMART status failed!|_OUT_", kSentSataStatus},
    // the state
    {"is on", &kFetchIde, "", kAny, 2, 9, "ioctl (HDIO_DRIVE_CMD) status = 0, /dev/hda smart enable|_OUT_ ret=[0]",
     kSentReadData},
    {"is off", &kFetchIde, R"("smart": {"enabled": false})", kAny, 3, 9,
     "! ioctl (HDIO_DRIVE_CMD) status = -1, /dev/hda smart disable|_OUT_ ret=[0]", kSentReadData},
    {"is on", &kFetchSata, R"("smart": {"attributes": [{"id": 9}]})", kAny, 2, 9,
     "ioctl (HDIO_DRIVE_CMD) status = 0, /dev/sda smart enable|_OUT_ ret=[0]", kSentReadData},
    {"is off", &kFetchSata, R"("smart": {"enabled": false})", kAny, 3, 9,
     "! ioctl (HDIO_DRIVE_CMD) status = -1, /dev/sda smart disable|_OUT_ ret=[0]", kSentReadData},
};

TEST(AtaSmart, EachRoutineSetsItsFieldsAndTracesWhy)
{
    for (const RoutineCase &c : kCases) {
        SCOPED_TRACE(std::string(c.routine->name) + ": " + c.name);
        const sim::Machine machine(oneDisk(c.routine->kind, c.fields));
        HardDiskEntry disk = freshDisk(nodeOf(c.routine->kind), c.routine->kind);
        disk.SmartSupport = disk.SmartEnableState = kAny;
        disk.SmartPredict = kAnyPrediction;
        const TraceRecorder traces;
        c.routine->run(&disk);
        EXPECT_EQ(disk.SmartSupport, c.support);
        EXPECT_EQ(disk.SmartEnableState, c.state);
        EXPECT_EQ(disk.SmartPredict, c.predict);
        EXPECT_EQ(joined(leveled(traces, c.routine->name)), std::string("_IN_|") + c.lines);
        EXPECT_EQ(wire(machine), c.sent);
        EXPECT_EQ(machine.openDescriptors(), 0);
        EXPECT_EQ(machine.unknownIoctls(), 0U);
    }
}

TEST(FetchAtaEnableDisable, ADiskThatCannotBeOpenedHasNoState)
{
    const sim::Machine machine(oneDisk(kDevKindAta, kNotOpened));
    HardDiskEntry disk = freshDisk("/dev/hda", kDevKindAta);
    disk.SmartEnableState = kAny;
    const TraceRecorder traces;
    EXPECT_EQ(fetch_ata_enable_disable(&disk), -1);
    EXPECT_EQ(disk.SmartEnableState, 0U);
    EXPECT_THAT(traces.texts(), ElementsAre("_IN_", "open device :/dev/hda failed", "_OUT_ ret=[-1]"));
    EXPECT_TRUE(traces.has(3, "open device :/dev/hda failed"));
}

// What the block holds, data included, when each IDENTIFY comes; the first one writes and fails, the second writes
// nothing and succeeds.
struct FirstIdentifyFails {
    std::vector<std::vector<uint8_t>> blocks;
    IoctlDouble ioctl{[this](unsigned long request, void *argument) { return take(request, argument); }};

    int take(unsigned long request, void *argument)
    {
        auto *block = static_cast<uint8_t *>(argument);
        if (request != HDIO_DRIVE_CMD || (block[0] != 0xEC && block[0] != 0xA1)) {
            return 0;
        }
        blocks.emplace_back(block, block + 1028);
        if (block[0] == 0xA1) {
            return 0;
        }
        std::fill_n(block, 4, uint8_t{0x51});
        block[4 + 164] = 0; // no SMART, and the words count
        block[4 + 167] = 0x40;
        return EIO;
    }
};

TEST(EnableAtaSmart, OnlySataZeroesTheBlockAgainForThePacketCommand)
{
    const NodeFile node;
    for (const auto &[enable, support, leftOver] :
         {std::tuple(&enable_atapi_smart, 3, 0x40), std::tuple(&enable_sata_smart, 1, 0)}) {
        FirstIdentifyFails device;
        HardDiskEntry disk = freshDisk(node.path(), kDevKindAta);
        enable(&disk);
        EXPECT_EQ(disk.SmartSupport, static_cast<uint64_t>(support));
        ASSERT_EQ(device.blocks.size(), 2U);
        EXPECT_THAT(std::span(device.blocks[0]).first(4), ElementsAre(0xEC, 0, 0, 1));
        EXPECT_THAT(std::span(device.blocks[0]).subspan(4), Each(0));
        EXPECT_THAT(std::span(device.blocks[1]).first(4), ElementsAre(0xA1, 0, 0, 1));
        EXPECT_EQ(device.blocks[1][4 + 167], leftOver);
        EXPECT_THAT(device.ioctl.modes, Each(O_RDWR));
    }
}

TEST(AtaSmart, ANullEntryIsTraced)
{
    for (const Routine *routine : {&kEnableAtapi, &kEnableSata, &kDisableAtapi, &kDisableSata, &kGetAtapi, &kGetSata}) {
        const TraceRecorder traces;
        routine->run(nullptr);
        EXPECT_THAT(leveled(traces, routine->name), ElementsAre("_IN_", "! _OUT_ hdt is NULL"));
    }
    const TraceRecorder traces;
    EXPECT_EQ(fetch_ata_enable_disable(nullptr), -1);
    EXPECT_THAT(leveled(traces, "fetch_ata_enable_disable"), ElementsAre("_IN_", "! hdt is null ", "! _OUT_ ret=[-1]"));
}

} // namespace
