// SPDX-License-Identifier: Apache-2.0
// What a collection leaves behind that does not come to its end.

#include "support/snapshot_fixture.h"

#include <cstdarg>
#include <cstdio>
#include <pthread.h>

using namespace tavstrg;

namespace {

// What a failed collection leaves: -1, its traces, and nothing held.
void expectFailed(const std::string &json, const std::string &dllMain)
{
    const sim::Machine machine(json);
    TraceRecorder trace;
    Snapshot now;
    EXPECT_EQ(strgGetCurrentInfo(0, now.dat), -1);
    EXPECT_EQ(trace.textsOf("DllMain").back(), dllMain);
    EXPECT_TRUE(trace.has(kDetail, dllMain, "DllMain"));
    EXPECT_TRUE(trace.has(kFailure, "DllMain Failure!!", "strgGetCurrentInfo"));
    EXPECT_EQ(trace.textsOf("strgGetCurrentInfo").back(), "_OUT_ ret=[TAV_FALSE]");
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ ret=[TAV_FALSE]", "strgGetCurrentInfo"));
    const std::vector<std::string> texts = trace.texts();
    const int device = positionOf(trace, "DllMain Failure!!");
    ASSERT_GE(device, 0);
    std::vector<std::string> freed; // device tables, discovery lists, controller tables
    for (const TraceRecord &record : trace.records()) {
        if (record.text == "DllMain Failure!!") {
            freed.clear();
        }
        if (record.text == "_IN_" &&
            (record.function == "FreeDeviceTable" || record.function == "FreeControllerTable" ||
             record.function == "FreeSCSIAndIDEInfoListFromProc")) {
            freed.push_back(record.function);
        }
    }
    EXPECT_EQ(freed,
              (std::vector<std::string>{"FreeDeviceTable", "FreeSCSIAndIDEInfoListFromProc", "FreeControllerTable"}));
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(now.dat[id].datAdr, nullptr);
    }
    EXPECT_EQ(currentCollection(), nullptr);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(CollectionFailure, OfDiscovery)
{
    expectFailed(R"({"ide": {"channels": [], "drives": [{"name": "hda", "media": "disk"}]},
                     "files": {"/proc/ide/hda/media": null}})",
                 "_OUT_ GetSCSIAndIDEInfoListFromProc() failed, leafstrg initialize failed.");
}

TEST(CollectionFailure, OfEachDiscoveryListFreesTheListsBeforeIt)
{
    const sim::Machine machine(kEverything);
    sim::countCallsOf("");
    const char *const texts[] = {
        "_OUT_ GetSCSIDeviceInfoFromProc() Failure!! status=[-1]",
        "_OUT_ GetSCSIControllerTypeDetailInfo() Failure!! status=[-1]",
        "_OUT_ GetIDEInfoFromProc() Failure!!",
    };
    for (unsigned nth = 1; nth <= std::size(texts); ++nth) { // each list begins with a listing of its own
        TraceRecorder trace;
        const Collection inventory;
        sim::failNth(sim::Call::list, nth);
        EXPECT_EQ(GetSCSIAndIDEInfoListFromProc(), -1);
        sim::failNth(sim::Call::list, 0);
        EXPECT_TRUE(trace.has(kDetail, texts[nth - 1], "GetSCSIAndIDEInfoListFromProc")) << nth;
        EXPECT_EQ(collection().g_SCSIDeviceInfo, nullptr);
        EXPECT_EQ(collection().g_SCSIControllerTypeDetail, nullptr);
        EXPECT_EQ(collection().g_IDEGeneralInfo.controllers, nullptr);
        EXPECT_EQ(collection().g_IDEGeneralInfo.devices, nullptr);
    }
}

// The building alone, without the freeing that a collection adds to it.
void expectBuildFreed(const std::string &json, const std::string &dllMain, bool tables)
{
    const sim::Machine machine(json);
    TraceRecorder trace;
    const Collection inventory;
    EXPECT_EQ(DllMain(), -1);
    EXPECT_EQ(trace.textsOf("DllMain").back(), dllMain);
    // At least one list was allocated.
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ ret=[0]", "GetSCSIAndIDEInfoListFromProc"));
    EXPECT_EQ(collection().g_SCSIDeviceInfo, nullptr);
    EXPECT_EQ(collection().g_SCSIControllerTypeDetail, nullptr);
    EXPECT_EQ(collection().g_IDEGeneralInfo.controllers, nullptr);
    EXPECT_EQ(collection().g_IDEGeneralInfo.devices, nullptr);
    EXPECT_EQ(collection().pSCSIDevTbl, nullptr);
    EXPECT_EQ(collection().pHDDevTbl, nullptr);
    if (tables) {
        EXPECT_EQ(collection().pCtrlTbl, nullptr);
        EXPECT_EQ(collection().pSCSICtrlTbl, nullptr);
        EXPECT_EQ(collection().pDriverTbl, nullptr);
    }
}

TEST(CollectionFailure, OfTheDeviceTablesFreesListsAndControllerTables)
{
    expectBuildFreed(R"({"hosts": [{"driver": "ahci", "devices": [{"id": 0, "ata": true},
                         {"id": 1, "vendor": "SEAGATE"}]}], "files": {"storage.inf": "ahci\n"}})",
                     "_OUT_ InitDevice() failed, leafstrg initialize failed", true);
}

TEST(CollectionFailure, OfTheControllerTablesFreesTheLists)
{
    expectBuildFreed(R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true}]}],
                         "ide": {"channels": [{"name": "idex"}], "drives": []}, "files": {"storage.inf": "ahci\n"}})",
                     "_OUT_ InitController() failed, leafstrg initialize failed", false);
}

TEST(CollectionFailure, OfTheControllerTables)
{
    expectFailed(R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true}]}],
                     "ide": {"channels": [{"name": "idex"}], "drives": []}, "files": {"storage.inf": "ahci\n"}})",
                 "_OUT_ InitController() failed, leafstrg initialize failed");
}

TEST(CollectionFailure, OfADiskWhoseIdentityIoctlFails)
{
    expectFailed(R"({"hosts": [{"driver": "ahci", "devices": [{"id": 0, "ata": true},
                     {"id": 1, "vendor": "SEAGATE", "model": "NOT ATA"}]}], "files": {"storage.inf": "ahci\n"}})",
                 "_OUT_ InitDevice() failed, leafstrg initialize failed");
}

TEST(CollectionFailure, OfADiskWithoutGeometry)
{
    const char *const json = R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true, "geometry": null,
        "faults": [{"on": "size", "errno": "EIO"}]}]}], "files": {"storage.inf": "ahci\n"}})";
    expectFailed(json, "_OUT_ InitDevice() failed, leafstrg initialize failed");
    const sim::Machine machine(json);
    TraceRecorder trace;
    Snapshot now;
    EXPECT_EQ(strgGetCurrentInfo(0, now.dat), -1);
    EXPECT_TRUE(trace.has(kFailure, "MakeSCSIHDDevice() failed!!", "MakeSCSIDeviceTable"));
}

TEST(CollectionFailure, TheNextCollectionStartsFromZero)
{
    sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [{"id": 0, "ata": true},
        {"id": 1, "type": 5}, {"id": 2, "vendor": "SEAGATE"}]}], "files": {"storage.inf": "ahci\n"}})");
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), -1);
    machine.change(R"({"hosts": [{"driver": "ahci", "devices": [{"id": 1, "type": 5}]}]})");
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    EXPECT_EQ(now.count(TAV_CID_STRG_SCSI), 1);
    EXPECT_EQ(now.count(TAV_CID_STRG_HDD), 0);
    EXPECT_EQ(now.count(TAV_CID_STRG_CDROM), 1);
    EXPECT_EQ(now.count(TAV_CID_STRG_CTRL), 1);
}

// Trace lines without allocating: the allocations that are made to fail are the product's alone.
char g_lines[64][128];
int g_lineCount;
char g_last[128]; // text of the collection's last line, and its level
int g_lastLevel;
void keepFailure(int level, const char *, const char *function, int, const char *format, ...)
{
    if (std::strcmp(function, "strgGetCurrentInfo") != 0) {
        return;
    }
    va_list args;
    va_start(args, format);
    std::vsnprintf(g_last, sizeof g_last, format, args);
    va_end(args);
    g_lastLevel = level;
    if (level == kFailure && g_lineCount < 64) {
        std::memcpy(g_lines[g_lineCount++], g_last, sizeof g_last);
    }
}

class Failures : public testing::Test {
protected:
    Failures()
    {
        sim::countCallsOf("");
        g_lineCount = 0;
        g_Func.trace.TraceLog = keepFailure;
    }
    ~Failures() override
    {
        sim::failNth(sim::Call::allocate, 0);
        g_Func.trace.TraceLog = nullptr;
    }
    // Collects with the nth call of a kind failing. Returns whether it was made. Nothing may leak.
    bool collectFailing(sim::Call kind, unsigned nth)
    {
        const int64_t blocks = sim::liveBlocks();
        const int64_t descriptors = sim::liveDescriptors();
        sim::failNth(kind, nth);
        const int result = strgGetCurrentInfo(0, now_.dat);
        const bool struck = sim::failureStruck();
        sim::failNth(kind, 0);
        now_.release();
        EXPECT_EQ(sim::liveBlocks(), blocks) << nth;
        EXPECT_EQ(sim::liveDescriptors(), descriptors) << nth;
        failed_ += result < 0 ? 1 : 0;
        return struck;
    }

    sim::Machine machine_{kEverything};
    Snapshot now_;
    unsigned failed_ = 0;
};

TEST_F(Failures, WhicheverAllocationFailsNothingIsLeftBehind)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer keeps the allocator";
    }
    unsigned nth = 1;
    while (collectFailing(sim::Call::allocate, nth)) {
        ASSERT_LT(++nth, 10000U);
    }
    EXPECT_GT(nth, 30U);
    EXPECT_GT(failed_, 20U);
}

TEST_F(Failures, WhicheverIoctlFailsNothingIsLeftBehind)
{
    unsigned nth = 1;
    while (collectFailing(sim::Call::ioctl, nth)) {
        ASSERT_LT(++nth, 10000U);
    }
    EXPECT_GT(nth, 4U);
}

TEST_F(Failures, WhicheverOpenFailsNothingIsLeftBehind)
{
    unsigned nth = 1;
    while (collectFailing(sim::Call::open, nth)) {
        ASSERT_LT(++nth, 10000U);
    }
    EXPECT_GT(nth, 10U);
}

TEST_F(Failures, WhicheverListingFailsNothingIsLeftBehind)
{
    unsigned nth = 1;
    while (collectFailing(sim::Call::list, nth)) {
        ASSERT_LT(++nth, 10000U);
    }
    EXPECT_GT(nth, 3U);
}

TEST_F(Failures, EachClassReportsThatItsRecordsCouldNotBeAllocated)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer keeps the allocator";
    }
    sim::resetCounts();
    ASSERT_EQ(strgGetCurrentInfo(0, now_.dat), 0);
    const unsigned all = sim::callsMade(sim::Call::allocate);
    now_.release();
    const char *const texts[] = {
        "Strg_Ctrl alloc Failure!!(120*5)", "Strg_SCSI alloc Failure!!(352*6)", "Strg_IDE alloc Failure!!(316*3)",
        "Strg_HDD alloc Failure!!(284*3)",  "Strg_CDROM alloc Failure!!(8*2)",  "Strg_Tape alloc Failure!!(8*1)",
        "Strg_OptMem alloc Failure!!(8*1)", "Strg_Misc alloc Failure!!(8*2)",
    };
    const unsigned arrays = std::size(texts); // the last allocations of a collection
    for (unsigned i = 0; i < arrays; ++i) {
        g_lineCount = 0;
        g_lastLevel = -1;
        EXPECT_TRUE(collectFailing(sim::Call::allocate, all - arrays + i + 1));
        ASSERT_EQ(g_lineCount, 1) << i;
        EXPECT_STREQ(g_lines[0], texts[i]);
        EXPECT_STREQ(g_last, "_OUT_ ret=[TAV_FALSE]");
        EXPECT_EQ(g_lastLevel, kDetail);
    }
    EXPECT_EQ(failed_, arrays);
}

TEST_F(Failures, AFailedAllocationKeepsEarlierArrays)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer keeps the allocator";
    }
    sim::resetCounts();
    ASSERT_EQ(strgGetCurrentInfo(0, now_.dat), 0);
    const unsigned all = sim::callsMade(sim::Call::allocate);
    now_.release();
    sim::failNth(sim::Call::allocate, all); // the last class that has records
    EXPECT_EQ(strgGetCurrentInfo(0, now_.dat), -1);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_NE(now_.dat[TAV_CID_STRG_CTRL].datAdr, nullptr);
    EXPECT_NE(now_.dat[TAV_CID_STRG_OPTM].datAdr, nullptr);
    EXPECT_EQ(now_.dat[TAV_CID_STRG_MISC].datAdr, nullptr);
}

// A stop meets the collection between two devices, where all that is held is held by owners.
void *collectUntilCancelled(void *descriptors)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    pthread_cancel(pthread_self());
    strgGetCurrentInfo(0, static_cast<DatInfo *>(descriptors));
    return nullptr;
}

TEST_F(Failures, ACancelledCollectionLeavesNothingBehind)
{
    const auto cancelled = [this] {
        pthread_t thread{};
        void *result = nullptr;
        EXPECT_EQ(pthread_create(&thread, nullptr, collectUntilCancelled, now_.dat), 0);
        EXPECT_EQ(pthread_join(thread, &result), 0);
        return result == PTHREAD_CANCELED;
    };
    EXPECT_TRUE(cancelled()); // the C library keeps a block of the first thread for the next one
    const int64_t blocks = sim::liveBlocks();
    const int64_t descriptors = sim::liveDescriptors();
    EXPECT_TRUE(cancelled());
    EXPECT_EQ(sim::liveBlocks(), blocks);
    EXPECT_EQ(sim::liveDescriptors(), descriptors);
    EXPECT_EQ(currentCollection(), nullptr);
    EXPECT_EQ(strgGetCurrentInfo(0, now_.dat), 0);
}

} // namespace
