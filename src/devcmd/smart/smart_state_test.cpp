// SPDX-License-Identifier: Apache-2.0
// SMART by what the disk reports, beside what the watch that trusts every answer makes of the same disk.
#include "devcmd/smart/smart_state.h"

#include "devcmd/open_device.h"
#include "devcmd/smart/ata_command.h"
#include "runtime/holders.h"
#include "support/ioctl_double.h"
#include "support/smart_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint16_t kScsiKind = kDevKindScsi;
constexpr uint16_t kSataKind = kDevKindSata;

const std::string kSatIdentifyLine = "sg 85 08 0e 00 00 00 01 00 00 00 00 00 00 00 ec 00";

// Opens nodes for a test as smart-state does.
class ReadOnlyNodes {
public:
    ReadOnlyNodes() { g_nodeUse = NodeUse::kReadOnly; }
    ~ReadOnlyNodes() { g_nodeUse = NodeUse::kAsAsked; }
    ReadOnlyNodes(const ReadOnlyNodes &) = delete;
    ReadOnlyNodes &operator=(const ReadOnlyNodes &) = delete;
};

// What one call on a fresh entry comes to.
struct Result {
    int predict;
    bool after; // SMART is switched on
    bool operator==(const Result &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Result &result)
{
    return out << "SmartPredict " << result.predict << (result.after ? ", on" : ", off");
}

Result trusting(uint16_t kind, const std::string &fields)
{
    const sim::Machine machine(oneDisk(kind, fields));
    HardDiskEntry disk = freshDisk("/dev/sda", kind);
    TAVStorageSmartWatch(&disk);
    return {disk.SmartPredict, machine.smartSwitchedOn("/dev/sda")};
}

Result byState(uint16_t kind, const std::string &fields)
{
    const ReadOnlyNodes nodes;
    const sim::Machine machine(oneDisk(kind, fields));
    HardDiskEntry disk = freshDisk("/dev/sda", kind);
    watchSmartState(disk, {});
    EXPECT_EQ(machine.openDescriptors(), 0);
    return {disk.SmartPredict, machine.smartSwitchedOn("/dev/sda")};
}

struct Case {
    const char *name;
    uint16_t kind;
    const char *fields;
    Result trusted; // what the other watch makes of it
    Result reported;
};

const Case kStateCases[] = {
    // where both agree
    {"sata, on and good", kSataKind, "", {0, true}, {0, true}},
    {"sata, on and failing", kSataKind, R"("smart": {"failing": true})", {1, true}, {1, true}},
    {"sata, off and good", kSataKind, R"("smart": {"enabled": false})", {0, false}, {0, false}},
    {"sata, off and failing", kSataKind, R"("smart": {"enabled": false, "failing": true})", {1, false}, {1, false}},
    {"scsi, on and good", kScsiKind, "", {0, true}, {0, true}},
    {"scsi, on and failing", kScsiKind, R"("exceptions": {"predicting": true})", {1, true}, {1, true}},
    {"scsi, off and good", kScsiKind, R"("exceptions": {"dexcpt": true})", {0, false}, {0, false}},
    {"scsi, off and failing",
     kScsiKind,
     R"("exceptions": {"dexcpt": true, "predicting": true})",
     {1, false},
     {1, false}},

    // "off" is what IDENTIFY or the mode page reports, not a command that failed
    {"sata, one READ DATA fails",
     kSataKind,
     R"("faults": [{"on": "smartData", "nth": 1, "errno": "EIO"}])",
     {0, false},
     {0, true}},
    {"sata, READ DATA always fails",
     kSataKind,
     R"("smart": {"failing": true}, "faults": [{"on": "smartData", "errno": "EIO"}])",
     {1, false},
     {1, true}},
    {"sata, off, IDENTIFY does not say so",
     kSataKind,
     R"("smart": {"enabled": false}, "identifyWords": {"87": 0})",
     {0, false},
     {0, true}},

    // fixed-format sense data
    {"sata, failing, fixed-format sense",
     kSataKind,
     R"("smart": {"failing": true}, "ataStatus": "fixed")",
     {0, true},
     {1, true}},
    {"sata, good, fixed-format sense", kSataKind, R"("ataStatus": "fixed")", {0, true}, {0, true}},

    // what cannot be read is -1
    {"sata, no sense data", kSataKind, R"("faults": [{"on": "smartStatus", "errno": "EIO"}])", {-1, true}, {-1, true}},
    {"sata, sense data without registers",
     kSataKind,
     R"("faults": [{"on": "smartStatus", "sense": "70 00 05 00 00 00 00 0a 00 00 00 00 24 00 00 00 00 00"}])",
     {0, true},
     {-1, true}},
    {"sata, RETURN STATUS aborted",
     kSataKind,
     R"("faults": [{"on": "smartStatus", "sense": "72 0b 00 00 00 00 00 0e 09 0c 00 04 00 00 00 00 00 4f 00 c2 40 51"}])",
     {0, true},
     {-1, true}},
    {"sata, another signature", kSataKind, R"("smart": {"status": [1, 2]})", {-1, true}, {-1, true}},
    {"sata, IDENTIFY fails", kSataKind, R"("identifyBy": "none")", {0, true}, {-1, true}},
    {"sata, cannot be switched on",
     kSataKind,
     R"("smart": {"enabled": false, "canEnable": false})",
     {0, false},
     {-1, false}},
    {"sata, ENABLE is lost",
     kSataKind,
     R"("smart": {"enabled": false}, "faults": [{"on": "smartEnable", "hostStatus": 3}])",
     {0, false},
     {-1, false}},
    {"sata, no SMART", kSataKind, R"("smart": {"supported": false})", {0, false}, {-1, false}},
    {"sata, does not open", kSataKind, R"("openError": "EBUSY")", {0, true}, {-1, true}},
    {"scsi, does not open", kScsiKind, R"("openError": "EIO")", {0, true}, {-1, true}},
    {"scsi, no such page", kScsiKind, R"("exceptions": {"supported": false})", {0, false}, {-1, false}},
    {"scsi, keeps its method", kScsiKind, R"("exceptions": {"fixedMrie": 4})", {0, true}, {-1, true}},
    {"scsi, silent", kScsiKind, R"("faults": [{"on": "any", "hostStatus": 3}])", {0, true}, {-1, true}},
    {"scsi, REQUEST SENSE is lost",
     kScsiKind,
     R"("faults": [{"on": "requestSense", "hostStatus": 7}])",
     {0, true},
     {-1, true}},
    {"scsi, REQUEST SENSE is refused",
     kScsiKind,
     R"("faults": [{"on": "requestSense", "sense": "70 00 05 00 00 00 00 0a 00 00 00 00 20 00"}])",
     {0, true},
     {-1, true}},
    {"scsi, the log page is refused",
     kScsiKind,
     R"("faults": [{"on": "logSense", "nth": 2, "sense": "70 00 03 00"}])",
     {0, true},
     {-1, true}},
};

TEST(SmartState, IsWhatTheDiskReportsAndUnknownOtherwise)
{
    const SmartMode mode(1);
    for (const Case &c : kStateCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(trusting(c.kind, c.fields), c.trusted);
        EXPECT_EQ(byState(c.kind, c.fields), c.reported);
    }
}

TEST(SmartState, ADiskThatRefusesToBeWrittenIsReadAllTheSame)
{
    const SmartMode mode(1);
    const char *const refuses = R"("smart": {"failing": true}, "writeOpenError": "EROFS")";
    EXPECT_EQ(trusting(kSataKind, refuses), (Result{0, true}));
    EXPECT_EQ(byState(kSataKind, refuses), (Result{1, true}));
    EXPECT_EQ(byState(kScsiKind, R"("exceptions": {"predicting": true}, "writeOpenError": "EROFS")"),
              (Result{1, true}));
}

TEST(SmartState, SendsTheCommandsInTheOrderOfTheOtherWatch)
{
    const SmartMode mode(1);
    const ReadOnlyNodes nodes;
    struct Sent {
        const char *fields;
        Lines lines;
    };
    const Sent cases[] = {
        {"", {kSatIdentifyLine, kSataOn, kSataStatus}},
        {R"("smart": {"enabled": false})", {kSatIdentifyLine, kSataOn, kSataStatus, kSataOff}},
        {R"("smart": {"supported": false})", {kSatIdentifyLine}},
        {R"("identifyBy": "none")", {kSatIdentifyLine}},
    };
    for (const Sent &c : cases) {
        const sim::Machine machine(oneDisk(kSataKind, c.fields));
        HardDiskEntry disk = freshDisk("/dev/sda", kSataKind);
        watchSmartState(disk, {});
        EXPECT_EQ(wire(machine), c.lines) << c.fields;
    }
}

TEST(SmartState, OpensNodesForReadingAlone)
{
    const SmartMode mode(1);
    const ReadOnlyNodes nodes;
    const NodeFile node;
    for (const uint16_t kind : {kScsiKind, kSataKind}) {
        HardDiskEntry disk = freshDisk(node.path(), kind);
        const IoctlDouble device([](unsigned long, void *) { return 0; });
        const int before = openDescriptors();
        watchSmartState(disk, {});
        EXPECT_THAT(device.modes, Each(O_RDONLY));
        EXPECT_FALSE(device.modes.empty());
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST(SmartState, OpensNodesWithoutWaiting)
{
    const NodeFile node;
    for (const bool readOnly : {false, true}) {
        g_nodeUse = readOnly ? NodeUse::kReadOnly : NodeUse::kAsAsked;
        const FileDesc device(openDevice(node.path(), O_RDWR));
        g_nodeUse = NodeUse::kAsAsked;
        ASSERT_TRUE(device);
        const int flags = ::fcntl(device.get(), F_GETFL) & (O_ACCMODE | O_NONBLOCK);
        EXPECT_EQ(flags, readOnly ? O_RDONLY | O_NONBLOCK : O_RDWR);
    }
}

// The names by which readers of the trace tell whether a disk was asked, and what came of it.
TEST(SmartState, TracesUnderTheNamesOfTheOtherWatch)
{
    const SmartMode mode(1);
    const ReadOnlyNodes nodes;
    const sim::Machine machine(oneDisk(kSataKind, ""));
    HardDiskEntry disk = freshDisk("/dev/sda", kSataKind);
    const TraceRecorder traces;
    watchSmartState(disk, {});
    EXPECT_THAT(leveled(traces, "TAVStorageSmartWatch"), ElementsAre("_IN_", "_OUT_ SmartPredict=[0]"));
    EXPECT_THAT(leveled(traces, "fetch_enable_disable"),
                ElementsAre("_IN_", "_OUT_ SmartSupport=[2] SmartEnableState=[2]"));
    EXPECT_THAT(leveled(traces, "get_sata_smart"), ElementsAre("_IN_", "sata SMART status is OK!", "_OUT_"));
}

// ---- the work that is done meanwhile ----

// How SMART of /dev/sda was when the work was done.
struct Work {
    const sim::Machine &machine;
    std::vector<bool> on{};

    WhileSmartOn whileOn()
    {
        return {[](void *context) {
                    auto *const work = static_cast<Work *>(context);
                    work->on.push_back(work->machine.smartSwitchedOn("/dev/sda"));
                },
                this};
    }
};

TEST(SmartState, OtherWorkIsDoneOnceWhileSmartIsOn)
{
    const SmartMode mode(1);
    const ReadOnlyNodes nodes;
    const struct {
        uint16_t kind;
        const char *fields;
        bool on;
    } cases[] = {
        {kSataKind, "", true},
        {kSataKind, R"("smart": {"enabled": false})", true},
        {kScsiKind, R"("exceptions": {"dexcpt": true})", true},
        {kSataKind, R"("smart": {"enabled": false}, "faults": [{"on": "smartStatus", "errno": "EIO"}])", true},
        {kSataKind, R"("smart": {"enabled": false}, "identifyBy": "none")", false}, // not known to be off: left alone
        {kSataKind, R"("smart": {"supported": false})", false},
    };
    for (const auto &c : cases) {
        const sim::Machine machine(oneDisk(c.kind, c.fields));
        HardDiskEntry disk = freshDisk("/dev/sda", c.kind);
        Work work{machine};
        watchSmartState(disk, work.whileOn());
        EXPECT_THAT(work.on, ElementsAre(c.on)) << c.fields;
    }
}

TEST(SmartState, WithAnotherModeOnlyTheOtherWorkIsDone)
{
    for (const int32_t other : {0, 2}) {
        const SmartMode mode(other);
        const sim::Machine machine(oneDisk(kSataKind, R"("smart": {"enabled": false})"));
        HardDiskEntry disk = freshDisk("/dev/sda", kSataKind);
        Work work{machine};
        watchSmartState(disk, work.whileOn());
        EXPECT_THAT(work.on, ElementsAre(false));
        EXPECT_THAT(machine.commands(), IsEmpty());
        EXPECT_EQ(disk.SmartPredict, 0);
        EXPECT_EQ(disk.SmartSupport, 1U);
    }
}

TEST(SmartState, ADiskOfAnotherKindIsUnknown)
{
    const SmartMode mode(1);
    const sim::Machine machine(oneDisk(kSataKind, ""));
    for (const uint16_t kind : {kDevKindAta, uint16_t{3}}) {
        HardDiskEntry disk = freshDisk("/dev/sda", kind);
        watchSmartState(disk, {});
        EXPECT_EQ(disk.SmartPredict, -1);
    }
    EXPECT_THAT(machine.commands(), IsEmpty());
}

// ---- what a whole reply may look like ----

// A disk with the bytes of REQUEST SENSE given, whose mode page is on and which has no log pages.
int predictOfSense(const std::string &sense)
{
    const SmartMode mode(1);
    const NodeFile node;
    HardDiskEntry disk = freshDisk(node.path(), kScsiKind);
    const IoctlDouble device([&](unsigned long, void *argument) {
        auto *const header = static_cast<sg_io_hdr *>(argument);
        const std::vector<uint8_t> page = bytesOf("17 00 00 08 00 00 00 00 00 00 00 00 1c 0a 00 06 00 00 00 00 00 00");
        const std::vector<uint8_t> reply = header->cmdp[0] == 0x1A   ? page
                                           : header->cmdp[0] == 0x03 ? bytesOf(sense)
                                                                     : std::vector<uint8_t>();
        std::copy(reply.begin(), reply.end(), static_cast<uint8_t *>(header->dxferp));
        return 0;
    });
    watchSmartState(disk, {});
    return disk.SmartPredict;
}

TEST(SmartState, SenseDataWithoutTheirCodeAreNoVerdict)
{
    EXPECT_EQ(predictOfSense("70 00 00 00 00 00 00 0a 00 00 00 00 00 00 00 00 00 00"), 0);
    EXPECT_EQ(predictOfSense("70 00 00 00 00 00 00 0a 00 00 00 00 5d 00 00 00 00 00"), 1);
    EXPECT_EQ(predictOfSense("72 00 5d 00 00 00 00 00"), 1);
    EXPECT_EQ(predictOfSense("72 00 00 00 00 00 00 00"), 0);
    EXPECT_EQ(predictOfSense("70 00 00 00 00 00 00 04 00 00 00 00 5d"), -1);
    EXPECT_EQ(predictOfSense("00 00 5d"), -1);
    EXPECT_EQ(predictOfSense(""), -1);
}

TEST(SmartState, APageOfAnotherCodeSaysNothing)
{
    const SmartMode mode(1);
    const NodeFile node;
    HardDiskEntry disk = freshDisk(node.path(), kScsiKind);
    std::vector<uint8_t> sent;
    const IoctlDouble device([&](unsigned long, void *argument) {
        auto *const header = static_cast<sg_io_hdr *>(argument);
        sent.push_back(header->cmdp[0]);
        const std::vector<uint8_t> page = bytesOf("17 00 00 08 00 00 00 00 00 00 00 00 08 0a 08 06 00 00 00 00 00 00");
        std::copy(page.begin(), page.end(), static_cast<uint8_t *>(header->dxferp));
        return 0;
    });
    watchSmartState(disk, {});
    EXPECT_EQ(disk.SmartPredict, -1);
    EXPECT_EQ(disk.SmartEnableState, 0U);
    EXPECT_THAT(sent, Each(0x1A)); // no MODE SELECT
}

TEST(SmartState, IdentifyDataSayWhetherSmartIsOn)
{
    std::array<uint8_t, kIdentifyLength> words{};
    EXPECT_EQ(smartStateOfIdentify(words), 0U);
    words[2 * 85] = 1;
    EXPECT_EQ(smartStateOfIdentify(words), 0U);
    words[2 * 87 + 1] = 0x40;
    EXPECT_EQ(smartStateOfIdentify(words), 2U);
    words[2 * 85] = 0xFE;
    EXPECT_EQ(smartStateOfIdentify(words), 3U);
    words[2 * 87 + 1] = 0xC0;
    EXPECT_EQ(smartStateOfIdentify(words), 0U);
}

} // namespace
