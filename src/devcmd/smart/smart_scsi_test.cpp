// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/smart_routines.h"
#include "support/ioctl_double.h"
#include "support/smart_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr uint64_t kUnset = 9; // a value that no routine writes: the field is unchanged
constexpr int16_t kUnsetPrediction = 9;

HardDiskEntry marked(const char *path)
{
    HardDiskEntry disk = freshDisk(path, kDevKindScsi);
    disk.SmartSupport = disk.SmartEnableState = kUnset;
    disk.SmartPredict = kUnsetPrediction;
    return disk;
}

struct ScsiRoutineCase {
    const char *name;
    bool sg;
    const char *fields;
    uint64_t value; // of the field that the routine sets
    Lines lines;    // between entry and exit
};

// Runs a routine on a simulated disk and compares what it traced.
template <class Routine>
HardDiskEntry run(const ScsiRoutineCase &c, const char *function, const char *exit, Routine routine)
{
    const SgIo way(c.sg);
    const sim::Machine machine(oneDisk(kDevKindScsi, c.fields));
    HardDiskEntry disk = marked("/dev/sda");
    const TraceRecorder traces;
    routine(&disk);
    Lines expected{"_IN_"};
    expected.insert(expected.end(), c.lines.begin(), c.lines.end());
    expected.emplace_back(exit);
    EXPECT_EQ(leveled(traces, function), expected);
    EXPECT_EQ(machine.openDescriptors(), 0);
    EXPECT_EQ(machine.unknownIoctls(), 0U);
    return disk;
}

const char *const kModeSense6 = "sg 1a 00 1c 00 ff 00";
const char *const kShort = "modese_len: 0(1:CDB[10], other:CDB[6])";
const char *const kLong = "modese_len: 1(1:CDB[10], other:CDB[6])";
const char *const kNeither = "modese_len: 2(1:CDB[10], other:CDB[6])";
const char *const kUnknown = "! get modese_len :2 unkown, but process as modese_len 6 continue .";
const char *const kNoOffset = "! scsiModePage Offset err.offset=-1";
const char *const kSenseFailed = "! /dev/sda : modesense failed, support = unknown";
const char *const kSenseException = "! /dev/sda : modesense some exception happened, support = unknown";
const char *const kSelectFailed = "! /dev/sda : modeselect failed, support = unknown";
const char *const kMrieDiffers = "! /dev/sda : mrie != 0x06, support = unknown";
const char *const kRefused = "/dev/sda : not support S.M.A.R.T.";
const char *const kEnabled = "/dev/sda : enable success";

const ScsiRoutineCase kEnable[] = {
    {"on", true, "", 2, {kShort, kEnabled}},
    {"off", true, R"("exceptions": {"dexcpt": true, "savable": true})", 2, {kShort, kEnabled}},
    {"without block descriptor", true, R"("exceptions": {"blockDescriptor": false})", 2, {kShort, kEnabled}},
    {"cannot be opened",
     true,
     R"("openError": "EBUSY")",
     1,
     {"! open device :/dev/sda failed, support = unknown errno=[16]"}},
    {"answers nothing",
     true,
     R"("faults": [{"on": "modeSense", "hostStatus": 3}])",
     1,
     {kUnknown, kNeither, kSenseFailed}},
    {"10 bytes through SG_IO",
     true,
     R"("faults": [{"on": "modeSense", "nth": 1, "errno": "EIO"}])",
     2,
     {kLong, kEnabled}},
    {"refuses the page through SG_IO", true, R"("exceptions": {"supported": false})", kUnset, {kShort, kNoOffset}},
    {"loses MODE SELECT", true, R"("faults": [{"on": "modeSelect", "errno": "EIO"}])", 1, {kShort, kSelectFailed}},
    {"loses the second MODE SENSE",
     true,
     R"("faults": [{"on": "modeSense", "nth": 3, "hostStatus": 7}])",
     1,
     {kShort, kSenseFailed}},
    {"reads back method 4", true, R"("exceptions": {"fixedMrie": 4})", 1, {kShort, kMrieDiffers}},
    {"reads back method 7", true, R"("exceptions": {"fixedMrie": 7})", 2, {kShort, kEnabled}},
    {"refuses MODE SELECT through SG_IO", true, R"("exceptions": {"canSelect": false})", 1, {kShort, kMrieDiffers}},
    // the request left in the buffer must not be read as the answer
    {"meets a unit attention", true, R"("exceptions": {"unitAttention": true})", 1, {kShort, kMrieDiffers}},
    // the older way
    {"older, on", false, "", 2, {kShort, kEnabled}},
    {"older, 10 bytes",
     false,
     R"("exceptions": {"modeSense6": false, "blockDescriptor": false})",
     2,
     {kLong, kEnabled}},
    // deliberate: the list is sent without its block descriptor, and disks refuse it
    {"older, 10 bytes, block descriptor", false, R"("exceptions": {"modeSense6": false})", 1, {kLong, kSelectFailed}},
    {"older, refuses the page", false, R"("exceptions": {"supported": false})", 3, {kUnknown, kNeither, kRefused}},
    {"older, refuses the page with descriptors",
     false,
     R"("exceptions": {"supported": false}, "descriptorSense": true)",
     3,
     {kUnknown, kNeither, kRefused}},
    {"older, refuses the command",
     false,
     R"("exceptions": {"modeSense6": false, "modeSense10": false})",
     3,
     {kUnknown, kNeither, kRefused}},
    {"older, not ready",
     false,
     R"("faults": [{"on": "modeSense", "nth": 2, "sense": "70 00 02 00 00 00 00 0a 00 00 00 00 04 00 00 00 00 00"}])",
     1,
     {kShort, kSenseException}},
    {"older, a code of neither format: key in byte 1",
     false,
     R"("faults": [{"on": "modeSense", "nth": 2, "sense": "7f 05 02 00 00 00 00 00"}])",
     3,
     {kShort, kRefused}},
    {"older, transport fails",
     false,
     R"("faults": [{"on": "modeSense", "nth": 2, "hostStatus": 7}])",
     1,
     {kShort, kSenseFailed}},
    {"older, refuses MODE SELECT", false, R"("exceptions": {"canSelect": false})", 1, {kShort, kSelectFailed}},
    {"older, refuses the page after MODE SELECT",
     false,
     R"("faults": [{"on": "modeSense", "nth": 3, "sense": "72 05 20 00 00 00 00 00"}])",
     3,
     {kShort, kRefused}},
    {"older, the same code after MODE SELECT: key in byte 2",
     false,
     R"("faults": [{"on": "modeSense", "nth": 3, "sense": "7f 05 02 00 00 00 00 00"}])",
     1,
     {kShort, kSenseException}},
    {"older, key in byte 2",
     false,
     R"("faults": [{"on": "modeSense", "nth": 3, "sense": "7f 02 05 00 00 00 00 00"}])",
     3,
     {kShort, kRefused}},
    {"older, unit attention", false, R"("exceptions": {"unitAttention": true})", 1, {kShort, kSenseException}},
};

TEST(EnableScsiSmart, SetsTheSupportItFinds)
{
    for (const ScsiRoutineCase &c : kEnable) {
        SCOPED_TRACE(c.name);
        const HardDiskEntry disk = run(c, "enable_scsi_smart", "_OUT_", enable_scsi_smart);
        EXPECT_EQ(disk.SmartSupport, c.value);
        EXPECT_EQ(disk.SmartEnableState, kUnset);
        EXPECT_EQ(disk.SmartPredict, kUnsetPrediction);
    }
}

TEST(EnableScsiSmart, SavesThePageWhereItIsSavable)
{
    for (const auto &[savable, select] :
         {std::pair("true", "sg 15 11 00 00 18 00"), std::pair("false", "sg 15 10 00 00 18 00")}) {
        const sim::Machine machine(
            oneDisk(kDevKindScsi, std::string(R"("exceptions": {"dexcpt": true, "savable": )") + savable + "}"));
        HardDiskEntry disk = freshDisk("/dev/sda", kDevKindScsi);
        enable_scsi_smart(&disk);
        EXPECT_EQ(disk.SmartSupport, 2U);
        EXPECT_EQ(wire(machine).at(2), select);
        EXPECT_TRUE(machine.smartSwitchedOn("/dev/sda"));
    }
}

// A MODE SENSE(6) reply whose page begins at an offset.
SgReply pageAt(size_t offset)
{
    SgReply reply{.data = std::vector<uint8_t>(255)};
    reply.data[0] = 0xFF;
    reply.data[3] = static_cast<uint8_t>(offset - 4);
    for (size_t i = offset + 3; i < 255; ++i) {
        reply.data[i] = 6;
    }
    return reply;
}

TEST(EnableScsiSmart, APageThatReachesOutOfTheBufferIsNotTouched)
{
    const NodeFile node;
    for (const auto &[offset, support] : {std::pair(251U, 2U), std::pair(252U, 9U), std::pair(253U, 9U)}) {
        HardDiskEntry disk = marked(node.path());
        ScsiDouble device({pageAt(offset)});
        const TraceRecorder traces;
        enable_scsi_smart(&disk);
        EXPECT_EQ(disk.SmartSupport, support) << offset;
        EXPECT_EQ(traces.has(3, "scsiModePage Offset err.offset=" + std::to_string(offset), "enable_scsi_smart"),
                  offset > 251);
    }
}

const ScsiRoutineCase kDisable[] = {
    {"on", true, "", kUnset, {kShort}},
    {"cannot be opened", true, R"("openError": "EACCES")", kUnset, {"! open device :/dev/sda failed errno=[13]"}},
    {"answers nothing",
     true,
     R"("faults": [{"on": "modeSense", "hostStatus": 7}])",
     1,
     {kUnknown, kNeither, kSenseFailed}},
    {"refuses the page through SG_IO", true, R"("exceptions": {"supported": false})", kUnset, {kShort, kNoOffset}},
    {"loses MODE SELECT",
     true,
     R"("faults": [{"on": "modeSelect", "errno": "EIO"}])",
     kUnset,
     {kShort, "! /dev/sda : modeselect some exception happened"}},
    {"older, on", false, "", kUnset, {kShort}},
    {"older, refuses MODE SELECT",
     false,
     R"("exceptions": {"canSelect": false})",
     kUnset,
     {kShort, "! /dev/sda : modeselect some exception happened"}},
    {"older, goes on after a refusal",
     false,
     R"("faults": [{"on": "modeSense", "nth": 2, "sense": "00 00 05 00 00 00 00 00"}])",
     kUnset,
     {kShort, kNoOffset}},
};

TEST(DisableScsiSmart, ChangesTheSupportOnlyWhereThePageCannotBeRead)
{
    for (const ScsiRoutineCase &c : kDisable) {
        SCOPED_TRACE(c.name);
        const HardDiskEntry disk = run(c, "disable_scsi_smart", "_OUT_", disable_scsi_smart);
        EXPECT_EQ(disk.SmartSupport, c.value);
        EXPECT_EQ(disk.SmartEnableState, kUnset);
        EXPECT_EQ(disk.SmartPredict, kUnsetPrediction);
    }
}

TEST(DisableScsiSmart, LeavesTheMethodOfReporting)
{
    const sim::Machine machine(oneDisk(kDevKindScsi, R"("exceptions": {"mrie": 4, "changeableMrie": false})"));
    HardDiskEntry disk = freshDisk("/dev/sda", kDevKindScsi);
    disable_scsi_smart(&disk); // a disk that may not change the method would refuse
    EXPECT_FALSE(machine.smartSwitchedOn("/dev/sda"));
}

const ScsiRoutineCase kFetch[] = {
    {"on", true, "", 2, {kShort, "HD /dev/sda smart enable"}},
    {"off", true, R"("exceptions": {"dexcpt": true})", 3, {kShort, "HD /dev/sda smart disable"}},
    {"older, off, 10 bytes",
     false,
     R"("exceptions": {"dexcpt": true, "modeSense6": false})",
     3,
     {kLong, "HD /dev/sda smart disable"}},
    {"cannot be opened", true, R"("openError": "EBUSY")", 0, {"! open device :/dev/sda failed"}},
    {"answers nothing",
     true,
     R"("faults": [{"on": "modeSense", "errno": "EIO"}])",
     0,
     {kUnknown, kNeither, "! modesense /dev/sda : failed"}},
    {"refuses the page through SG_IO", true, R"("exceptions": {"supported": false})", 0, {kShort, kNoOffset}},
};

TEST(FetchScsiEnableDisable, SetsTheStateItFinds)
{
    for (const ScsiRoutineCase &c : kFetch) {
        SCOPED_TRACE(c.name);
        const int result = c.value == 0 ? -1 : 0;
        const char *const exit = result == 0 ? "_OUT_ retvale=[0]" : "! _OUT_ retvale=[-1]";
        const HardDiskEntry disk = run(c, "fetch_scsi_enable_disable", exit, [result](HardDiskEntry *hdt) {
            EXPECT_EQ(fetch_scsi_enable_disable(hdt), result);
        });
        EXPECT_EQ(disk.SmartEnableState, c.value);
        EXPECT_EQ(disk.SmartSupport, kUnset);
        EXPECT_EQ(disk.SmartPredict, kUnsetPrediction);
    }
}

// value: SmartPredict; with SmartSupport 1 it stays as it was.
const ScsiRoutineCase kGet[] = {
    {"good", true, "", 0, {"dSmartPage=1;asc =0", "repcode=[112]", "asc=[0]"}},
    {"predicts, in the log", true, R"("exceptions": {"predicting": true})", 1, {"dSmartPage=1;asc =93"}},
    {"predicts, without a log",
     true,
     R"("exceptions": {"predicting": true, "mrie": 6, "logPage": false})",
     1,
     {"dSmartPage=0;asc =0", "repcode=[112]", "asc=[93]"}},
    {"predicts, with descriptors",
     true,
     R"("exceptions": {"predicting": true, "mrie": 6, "logPage": false}, "descriptorSense": true)",
     1,
     {"dSmartPage=0;asc =0", "repcode=[114]", "asc=[93]"}},
    {"older, predicts, in the log", false, R"("exceptions": {"predicting": true})", 1, {"dSmartPage=1;asc =93"}},
    {"older, predicts, without a log",
     false,
     R"("exceptions": {"predicting": true, "mrie": 6, "logPage": false})",
     1,
     {"dSmartPage=0;asc =0", "repcode=[112]", "asc=[93]"}},
    {"cannot be opened", true, R"("openError": "ENXIO")", kUnset, {"! open device :/dev/sda failed, errno=[6]"}},
    {"has no list of pages",
     true,
     R"("faults": [{"on": "logSense", "nth": 1, "errno": "EIO"}])",
     0,
     {"dSmartPage=0;asc =0", "repcode=[112]", "asc=[0]"}},
    {"loses the log",
     true,
     R"("faults": [{"on": "logSense", "nth": 2, "hostStatus": 3}])",
     kUnset,
     {"! Log Sense :/dev/sda failed, errno=[110]"}},
    {"older, refuses the log",
     false,
     R"("faults": [{"on": "logSense", "nth": 2, "sense": "70 00 05 00"}])",
     kUnset,
     {"! Log Sense :/dev/sda failed, errno=[0]"}},
    {"refuses the log through SG_IO",
     true,
     R"("faults": [{"on": "logSense", "nth": 2, "sense": "70 00 05 00"}])",
     kUnset,
     {"! Log Sense /dev/sda failed, IE page, bad parameter code or length, errno=[0]"}},
    {"loses REQUEST SENSE",
     true,
     R"("faults": [{"on": "requestSense", "errno": "EIO"}])",
     kUnset,
     {"dSmartPage=1;asc =0", "! /dev/sda: requestsense failed, errno=[5]"}},
};

TEST(GetScsiSmart, SetsThePrediction)
{
    for (const ScsiRoutineCase &c : kGet) {
        SCOPED_TRACE(c.name);
        const HardDiskEntry disk = run(c, "get_scsi_smart", "_OUT_", get_scsi_smart);
        EXPECT_EQ(disk.SmartPredict, static_cast<int16_t>(c.value));
        EXPECT_EQ(disk.SmartSupport, c.value == kUnset ? 1 : kUnset);
        EXPECT_EQ(disk.SmartEnableState, kUnset);
    }
}

// Replies to LOG SENSE of the list, LOG SENSE of the page and REQUEST SENSE.
struct ReplyCase {
    const char *name, *log, *sense;
    int16_t predict;
    uint64_t support;
    size_t sent;
};

TEST(GetScsiSmart, JudgesEveryFormOfReply)
{
    const NodeFile node;
    const char *const none = "00";
    const ReplyCase cases[] = {
        {"parameter length 1", "2f 00 00 04 00 00 03 01 5d", "70 00 00 00 00 00 00 0a 00 00 00 00 5d 10", 1, 9, 3},
        {"parameter length 1, good", "2f 00 00 04 00 00 03 01 5d", none, 0, 9, 3},
        {"parameter length 2", "2f 00 00 05 00 00 03 02 5d 10", none, 1, 9, 2},
        {"another code", "2f 00 00 05 00 00 03 02 0b 01", none, 0, 9, 2},
        {"page length 3", "2f 00 00 03 00 00 03 02 5d", none, 9, 1, 2},
        {"parameter code 1", "2f 00 00 07 00 01 03 03 5d", none, 9, 1, 2},
        {"zeros", "00", none, 9, 1, 2},
        {"fixed format", "2f 00 00 05 00 00 03 02 00", "71 00 5d 00 00 00 00 0a 00 00 00 00 5d", 1, 9, 3},
        {"fixed format, byte 2", "2f 00 00 05 00 00 03 02 00", "70 00 5d", 0, 9, 3},
        {"descriptor format", "2f 00 00 05 00 00 03 02 00", "72 01 5d 10 00 00 00 00", 1, 9, 3},
        {"deferred descriptor format", "2f 00 00 05 00 00 03 02 00", "f3 01 5d", 1, 9, 3},
        {"no known format", "2f 00 00 05 00 00 03 02 00", "00 00 5d", 1, 9, 3},
    };
    for (const ReplyCase &c : cases) {
        SCOPED_TRACE(c.name);
        HardDiskEntry disk = marked(node.path());
        ScsiDouble device({SgReply{.data = bytesOf("00 00 00 01 2f")}, SgReply{.data = bytesOf(c.log)},
                           SgReply{.data = bytesOf(c.sense)}});
        get_scsi_smart(&disk);
        EXPECT_EQ(disk.SmartPredict, c.predict);
        EXPECT_EQ(disk.SmartSupport, c.support);
        ASSERT_EQ(device.sent.size(), c.sent);
        EXPECT_EQ(device.sent[1].header.dxfer_len, 252U);
        for (const SgRequest &request : device.sent) {
            EXPECT_THAT(request.dataBefore, Each(0));
        }
    }
}

TEST(ScsiSmart, EveryModeSenseReadsIntoAZeroedBuffer)
{
    const NodeFile node;
    // number of MODE SENSE commands, including the one that finds the command size
    const std::pair<void (*)(HardDiskEntry *), int> routines[] = {
        {enable_scsi_smart, 3},
        {disable_scsi_smart, 2},
        {[](HardDiskEntry *hdt) { fetch_scsi_enable_disable(hdt); }, 2},
    };
    for (const auto &[routine, count] : routines) {
        HardDiskEntry disk = marked(node.path());
        ScsiDouble device({pageAt(12)});
        routine(&disk);
        int senses = 0;
        for (const SgRequest &request : device.sent) {
            if (request.cdb[0] == 0x1A) {
                ++senses;
                EXPECT_THAT(request.dataBefore, Each(0));
                EXPECT_EQ(request.header.dxfer_len, 255U);
            }
        }
        EXPECT_EQ(senses, count);
    }
}

TEST(ScsiSmart, SendsSixByteCommandsIfTheChoiceCannotOpen)
{
    struct {
        const char *name;
        void (*routine)(HardDiskEntry *hdt);
        Lines sent;
    } const cases[] = {
        {"enable_scsi_smart", enable_scsi_smart, {kModeSense6, "sg 15 10 00 00 18 00", kModeSense6}},
        {"disable_scsi_smart", disable_scsi_smart, {kModeSense6, "sg 15 10 00 00 18 00"}},
        {"fetch_scsi_enable_disable", [](HardDiskEntry *hdt) { fetch_scsi_enable_disable(hdt); }, {kModeSense6}},
    };
    sim::countCallsOf("");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const sim::Machine machine(oneDisk(kDevKindScsi, ""));
        HardDiskEntry disk = marked("/dev/sda");
        const TraceRecorder traces;
        sim::failNth(sim::Call::open, 2); // the first is the routine's own
        c.routine(&disk);
        EXPECT_TRUE(sim::failureStruck());
        sim::failNth(sim::Call::open, 0);
        EXPECT_THAT(leveled(traces, "scsiCDBModeSelect"), ElementsAre("_IN_", "! _OUT_ (-1)"));
        const Lines lines = leveled(traces, c.name);
        ASSERT_GE(lines.size(), 3U);
        EXPECT_EQ(lines[1], kUnknown);
        EXPECT_EQ(lines[2], kNeither);
        EXPECT_EQ(wire(machine), c.sent);
    }
}

TEST(ScsiSmart, ANullEntryIsTraced)
{
    const TraceRecorder traces;
    enable_scsi_smart(nullptr);
    disable_scsi_smart(nullptr);
    get_scsi_smart(nullptr);
    EXPECT_EQ(fetch_scsi_enable_disable(nullptr), -1);
    for (const char *function : {"enable_scsi_smart", "disable_scsi_smart", "get_scsi_smart"}) {
        EXPECT_THAT(leveled(traces, function), ElementsAre("_IN_", "! _OUT_ hdt is NULL"));
    }
    EXPECT_THAT(leveled(traces, "fetch_scsi_enable_disable"),
                ElementsAre("_IN_", "! hdt is null ", "! _OUT_ retvale=[-1]"));
}

} // namespace
