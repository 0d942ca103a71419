// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/smart_watch.h"

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
using testing::StartsWith;

struct StepCase {
    const char *name;
    uint64_t support, state;
    int16_t predict;
    Lines sent;
    bool after;
};

TEST(SmartWatch, EachStepSeesTheFieldsAsTheOneBeforeLeftThem)
{
    const SmartMode mode(1);
    const StepCase cases[] = {
        {"support known", 2, 0, 0, {kSataStatus}, true},
        {"state known", 1, 2, 0, {kIdentify, kSataOn, kSataStatus}, true},
        {"found off before", 1, 3, 0, {kIdentify, kSataOn, kSataStatus, kSataOff}, false},
        {"known to fail", 2, 2, 1, {}, true},
        {"known to fail, found off", 2, 3, 1, {kSataOff}, false},
        {"unreadable before", 1, 2, -1, {kIdentify, kSataOn}, true},
        {"not supported", 3, 0, 0, {}, true},
        {"not supported, found off", 3, 3, 0, {}, true},
    };
    for (const StepCase &c : cases) {
        SCOPED_TRACE(c.name);
        const sim::Machine machine(oneDisk(kDevKindSata, ""));
        HardDiskEntry disk = freshDisk("/dev/sda", kDevKindSata);
        disk.SmartSupport = c.support;
        disk.SmartEnableState = c.state;
        disk.SmartPredict = c.predict;
        TAVStorageSmartWatch(&disk);
        EXPECT_EQ(wire(machine), c.sent);
        EXPECT_EQ(machine.smartSwitchedOn("/dev/sda"), c.after);
    }
}

TEST(SmartWatch, AnotherKindOfDiskIsPassedOver)
{
    const SmartMode mode(1);
    const sim::Machine machine(oneDisk(kDevKindSata, R"("smart": {"enabled": false})"));
    for (const int kind : {3, 4, 0xFFFF}) {
        for (const uint64_t state : {0U, 3U}) {
            for (const uint64_t support : {1U, 2U}) {
                HardDiskEntry disk = freshDisk("/dev/sda", static_cast<uint16_t>(kind));
                disk.SmartEnableState = state;
                disk.SmartSupport = support;
                TAVStorageSmartWatch(&disk);
                EXPECT_EQ(disk.SmartSupport, support);
                EXPECT_EQ(disk.SmartEnableState, state);
                EXPECT_EQ(disk.SmartPredict, 0);
            }
        }
    }
    EXPECT_THAT(machine.commands(), IsEmpty());
}

TEST(SmartWatch, ANullEntryIsTracedWhereSmartIsHandled)
{
    const TraceRecorder traces;
    {
        const SmartMode mode(1);
        TAVStorageSmartWatch(nullptr);
    }
    const SmartMode mode(2);
    TAVStorageSmartWatch(nullptr);
    EXPECT_THAT(leveled(traces, "TAVStorageSmartWatch"),
                ElementsAre("_IN_", "! _OUT_ param(hdr) Failure!!", "_IN_", "_OUT_"));
}

TEST(SmartWatch, EveryRequestOpensTheNodeForReadingAndWriting)
{
    const SmartMode mode(1);
    const NodeFile node;
    for (const uint16_t kind : {kDevKindScsi, kDevKindAta, kDevKindSata}) {
        HardDiskEntry disk = freshDisk(node.path(), kind);
        const IoctlDouble device([](unsigned long, void *) { return 0; });
        const int before = openDescriptors();
        TAVStorageSmartWatch(&disk);
        EXPECT_THAT(device.modes, Each(O_RDWR));
        EXPECT_FALSE(device.modes.empty());
        EXPECT_EQ(openDescriptors(), before);
    }
}

// ---- fetch_enable_disable ----

struct FetchCase {
    uint16_t kind;
    const char *function; // the callee
    uint64_t state;
    const char *fields;
};

TEST(FetchEnableDisable, PicksTheRoutineByKindAndIgnoresItsResult)
{
    const FetchCase cases[] = {
        {kDevKindScsi, "fetch_scsi_enable_disable", 2, ""},
        {kDevKindScsi, "fetch_scsi_enable_disable", 0, R"("openError": "EBUSY")"},
        {kDevKindAta, "fetch_ata_enable_disable", 2, ""},
        {kDevKindAta, "fetch_ata_enable_disable", 0, R"("openError": "EBUSY")"},
        {kDevKindSata, "fetch_ata_enable_disable", 2, ""},
        {kDevKindSata, "fetch_ata_enable_disable", 0, R"("openError": "EIO")"},
    };
    for (const FetchCase &c : cases) {
        const sim::Machine machine(oneDisk(c.kind, c.fields));
        HardDiskEntry disk = freshDisk(nodeOf(c.kind), c.kind);
        disk.SmartEnableState = 9;
        const TraceRecorder traces;
        EXPECT_EQ(fetch_enable_disable(&disk), 0);
        EXPECT_EQ(disk.SmartEnableState, c.state);
        EXPECT_THAT(traces.textsOf(c.function).front(), StartsWith("_IN_"));
        EXPECT_THAT(leveled(traces, "fetch_enable_disable"), ElementsAre("_IN_", "_OUT_ ret=[0]"));
    }
    HardDiskEntry other = freshDisk("/dev/sda", 3);
    other.SmartEnableState = 9;
    EXPECT_EQ(fetch_enable_disable(&other), 0);
    EXPECT_EQ(other.SmartEnableState, 9U);
}

TEST(FetchEnableDisable, ANullEntryIsAFailure)
{
    const TraceRecorder traces;
    EXPECT_EQ(fetch_enable_disable(nullptr), -1);
    EXPECT_THAT(leveled(traces, "fetch_enable_disable"), ElementsAre("_IN_", "! _OUT_ hdt is NULL"));
}

} // namespace
