// SPDX-License-Identifier: Apache-2.0
#include "monitor/monitor.h"
#include "support/alert_recorder.h"
#include "support/lock_at.h"
#include "support/store_fixture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

const std::string kOpenTrace = std::string("fopen[") + kSavedStateFile + "]";

class Check : public StoreTest {
protected:
    Check()
    {
        // A store that was built from this machine.
        strgInitDatInfo(instSt);
        fill<StrgConfRec>(instSt[TAV_CID_STRG_CONF], {{60, 10, 3600, 60, 1, 0}});
        fill<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], {{}});
        OwnedRecords now;
        EXPECT_EQ(strgGetCurrentInfo(0, now.dat), 0);
        for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
            const int32_t num = now.dat[id].datNum;
            replaceRecords(instSt[id], num, takeRecords(now.dat[id]));
        }
        strgTakeTotals();
        gst_first = kBuilt;
        EXPECT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        EXPECT_EQ(strgPublishAll(&cInfo), 0);
        trace->clear();
    }

    std::vector<StrgScsiRec> disks() const { return recordsIn<StrgScsiRec>(instSt[TAV_CID_STRG_SCSI]); }

    StrgTnumRec totals() const { return recordsIn<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM])[0]; }

    // The records that are in a class's segment.
    template <class Rec> std::vector<Rec> published(int id) const
    {
        const auto *const adr = static_cast<const Rec *>(::shmat(shmSt[id].shmId, nullptr, SHM_RDONLY));
        std::vector<Rec> records(adr, adr + shmSt[id].shmNum);
        ::shmdt(adr);
        return records;
    }
};

TEST_F(Check, WithNothingChangedTracesEachStepInOrder)
{
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    std::vector<std::string> expected = {"0 _IN_"};
    for (const int num : {1, 1, 1, 2, 0, 2, 0, 0, 0, 0, 0}) {
        expected.push_back("0 shmSt[" + std::to_string(expected.size() - 1) + "].shmNum=[" + std::to_string(num) + "]");
    }
    expected.emplace_back("0 strgCheckConfigChange - before -");
    expected.emplace_back("0 strgGetCurrentInfo()");
    const std::vector<std::string> lines = linesOf("strgCheckConfigChange");
    ASSERT_GT(lines.size(), expected.size() + 18);
    EXPECT_EQ(std::vector(lines.begin(), lines.begin() + static_cast<long>(expected.size())), expected);
    const auto classes = lines.begin() + static_cast<long>(expected.size());
    const int counts[] = {1, 2, 0, 2, 0, 0, 0, 0, 0};
    for (int i = 0; i < 9; ++i) {
        const std::string n = std::to_string(counts[i]);
        EXPECT_EQ(classes[i * 2], "0 Idx=[" + std::to_string(i + 2) + "] curNum[" + n + "]<=>instSt[" + n + "]");
        EXPECT_THAT(classes[i * 2 + 1], StartsWith(counts[i] > 0 ? "0 memfree(0x" : "0 memfree already NULL"));
    }
    EXPECT_THAT(std::vector(classes + 18, lines.end()),
                ElementsAre("0 strgCheckConfigChange - after -", "0 " + kOpenTrace, "0 strgPutBinFile()", "0 fclose",
                            "0 _OUT_ ret=[0]"));
}

TEST_F(Check, TheCollectorIsGivenTheSmartModeOfTheStore)
{
    for (const int mode : {0, 1, 2}) {
        gst_SmartMode = mode;
        trace->clear();
        ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
        EXPECT_EQ(linesOf("strgGetCurrentInfo").front(), "0 _IN_ smartmode=[" + std::to_string(mode) + "]");
    }
}

TEST_F(Check, DumpsTheStoreBeforeAndAfter)
{
    machine.change(machineWith(2, "CHANGED"));
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    const std::vector<std::string> texts = trace->texts();
    const auto at = [&](const std::string &text) { return std::ranges::find(texts, text); };
    EXPECT_LT(at("strgCheckConfigChange - before -"), at("    Model                    =[MODEL-0]"));
    EXPECT_LT(at("    Model                    =[MODEL-0]"), at("strgCheckConfigChange - after -"));
    EXPECT_LT(at("strgCheckConfigChange - after -"), at("    Model                    =[CHANGED]"));
    EXPECT_NE(at("    Model                    =[CHANGED]"), texts.end());
}

TEST_F(Check, AReplacedDiskOfTheSameKindIsTakenOverWithEqualCounts)
{
    const void *const area = instSt[TAV_CID_STRG_SCSI].datAdr;
    machine.change(machineWith(2, "CHANGED"));
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_STREQ(disks()[0].Model, "CHANGED");
    EXPECT_EQ(instSt[TAV_CID_STRG_SCSI].datAdr, area) << "copied over";
    EXPECT_STREQ(published<StrgScsiRec>(TAV_CID_STRG_SCSI)[0].Model, "CHANGED");
    EXPECT_THAT(trace->textsOf("reallocDatArea"), testing::IsEmpty());
}

TEST_F(Check, ChangedCountsReplaceRecordsSegmentsTotalsAndFile)
{
    for (const int n : {5, 1, 0, 3, 2}) {
        trace->clear();
        machine.change(machineWith(n));
        ASSERT_EQ(strgCheckConfigChange(&cInfo), 0) << n;
        ASSERT_EQ(disks().size(), static_cast<size_t>(n));
        EXPECT_EQ(totals().SCSIDeviceTotalNumber, n);
        EXPECT_EQ(totals().HardDiskTotalNumber, n);
        EXPECT_EQ(shmSt[TAV_CID_STRG_HDD].shmNum, n);
        EXPECT_EQ(savedDisks(), n);
        if (n == 0) {
            EXPECT_EQ(instSt[TAV_CID_STRG_SCSI].datAdr, nullptr);
            EXPECT_EQ(shmSt[TAV_CID_STRG_SCSI].shmId, -1);
        } else {
            EXPECT_EQ(published<StrgScsiRec>(TAV_CID_STRG_SCSI).back().Index, n);
            EXPECT_EQ(disks().back().Index, n);
        }
        EXPECT_EQ(published<StrgTnumRec>(TAV_CID_STRG_TNUM)[0].HardDiskTotalNumber, n);
    }
    EXPECT_EQ(segments(), 5);
}

TEST_F(Check, ArrayThatAPassReplacesOrDropsIsFreedWithOneLine)
{
    const auto freed = [this] {
        const std::vector<std::string> lines = linesOf("strgCheckConfigChange");
        return std::ranges::count_if(lines, [](const std::string &line) { return line.starts_with("0 memfree(0x"); });
    };
    const auto lineOf = [](const void *array) {
        char line[40];
        std::snprintf(line, sizeof line, "0 memfree(%p)", array);
        return std::string(line);
    };
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_EQ(freed(), 3) << "what was collected: controllers, SCSI devices, hard disks";

    trace->clear();
    const std::string replaced = lineOf(instSt[TAV_CID_STRG_SCSI].datAdr);
    machine.change(machineWith(3));
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_THAT(linesOf("strgCheckConfigChange"), Contains(replaced));
    EXPECT_EQ(freed(), 3 + 2);

    trace->clear();
    const std::string dropped = lineOf(instSt[TAV_CID_STRG_HDD].datAdr);
    ASSERT_EQ(shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_HDD]), 0);
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_THAT(linesOf("strgCheckConfigChange"), Contains(dropped));
    EXPECT_EQ(freed(), 3 + 1);
}

TEST_F(Check, ConfigurationTakesNoPartInTheComparison)
{
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_THAT(linesOf("strgCheckConfigChange"), Not(Contains(StartsWith("0 Idx=[0]"))));
    EXPECT_THAT(linesOf("strgCheckConfigChange"), Not(Contains(StartsWith("0 Idx=[1]"))));
    EXPECT_EQ(recordsIn<StrgConfRec>(instSt[TAV_CID_STRG_CONF])[0].MonitorCycle, 60);
}

TEST_F(Check, TheStoreIsRefreshedFromTheSegmentsFirst)
{
    auto *const conf = static_cast<StrgConfRec *>(::shmat(shmSt[0].shmId, nullptr, 0));
    conf->MonitorCycle = 90;
    ::shmdt(conf);
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_EQ(recordsIn<StrgConfRec>(instSt[TAV_CID_STRG_CONF])[0].MonitorCycle, 90);
}

TEST_F(Check, ClassWithoutSegmentIsEmptiedAndRebuilt)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_HDD]);
    trace->clear();
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_TRUE(trace->has(kDetail, "shmSt[5].shmNum=[0]", "strgCheckConfigChange"));
    EXPECT_TRUE(trace->has(kDetail, "Idx=[5] curNum[2]<=>instSt[0]", "strgCheckConfigChange"));
    EXPECT_EQ(published<StrgHddRec>(TAV_CID_STRG_HDD).size(), 2U);
}

TEST_F(Check, LostSegmentKeepsRecordsAndFileUntilReplaced)
{
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    const std::string saved = machine.read(kSavedStateFile);
    machine.remove("/opt/qlm/tavkit_sa/work"); // no more segments
    machine.change(machineWith(3));
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
        EXPECT_EQ(disks().size(), 2U);
    }
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    EXPECT_EQ(linesOf("strgSetInstance").back(), "3 _OUT_ strgPutBinFile() Failure!!");
    EXPECT_EQ(machine.read(kSavedStateFile), saved);

    machine.makeDirectory("/opt/qlm/tavkit_sa/work");
    machine.change(machineWith(2)); // the count equals the stored one again; the segment is still missing
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_EQ(published<StrgScsiRec>(TAV_CID_STRG_SCSI).size(), 2U);
    EXPECT_EQ(strgSetInstance(&cInfo), 0);
    EXPECT_EQ(savedDisks(), 2);
}

// The classes before the one that fails have the records of this pass already, those behind it the records of before.
TEST_F(Check, StateOfTwoPassesIsNeverSavedWhateverFails)
{
    trace.reset(); // thousands of lines
    for (const sim::Call kind : {sim::Call::segment, sim::Call::allocate}) {
        if (kind == sim::Call::allocate && !sim::allocationsCanFail()) {
            continue;
        }
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            machine.change(machineWith(0));
            ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
            machine.change(machineWith(2)); // the first devices, and so the first segments, of two classes
            sim::failNth(kind, nth);
            static_cast<void>(strgCheckConfigChange(&cInfo));
            struck = sim::failureStruck();
            sim::failNth(kind, 0);
            static_cast<void>(strgSetInstance(&cInfo)); // a client changes a setting
            OwnedRecords saved;
            ASSERT_EQ(readSaved(saved.dat), 0) << nth;
            ASSERT_EQ(saved.dat[TAV_CID_STRG_SCSI].datNum, saved.dat[TAV_CID_STRG_HDD].datNum) << nth;
        }
    }
    removeSegments(); // those whose removal was made to fail
    trace.emplace();
}

TEST_F(Check, LostSegmentIsNotMissedOnceTheClassHasNoRecords)
{
    machine.remove("/opt/qlm/tavkit_sa/work");
    machine.change(machineWith(3));
    ASSERT_EQ(strgCheckConfigChange(&cInfo), -1);
    machine.makeDirectory("/opt/qlm/tavkit_sa/work");
    machine.change(machineWith(0));
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_EQ(disks().size(), 0U);
    EXPECT_EQ(strgSetInstance(&cInfo), 0);
    EXPECT_EQ(savedDisks(), 0);
}

TEST_F(Check, ASegmentThatCannotBeLockedFailsIt)
{
    g_srvmod = 1;
    sim::skipSleeps(true);
    pthread_mutex_lock(&shmSt[3].mutex.mutex);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    pthread_mutex_unlock(&shmSt[3].mutex.mutex);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ setShmToInst(3) Failure!!");
}

TEST_F(Check, ACollectionThatFailsLeavesTheStoreAsItWas)
{
    sim::failNth(sim::Call::uname, 1);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    const std::vector<std::string> lines = linesOf("strgCheckConfigChange");
    const auto failure = std::ranges::find(lines, "3 strgGetCurrentInfo Failure!!");
    ASSERT_NE(failure, lines.end());
    EXPECT_EQ(std::count(failure, lines.end(), "0 memfree already NULL"), 9);
    EXPECT_EQ(disks().size(), 2U);
    EXPECT_FALSE(machine.exists(kSavedStateFile));
}

TEST_F(Check, WithoutConfigurationItFails)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_CONF]);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!");
}

TEST_F(Check, WithoutTotalsItFails)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_TNUM]);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ param(instSt[TAV_CID_STRG_TNUM].datAdr) Failure!!");
}

TEST_F(Check, AClassWhoseArrayIsGoneWithTheSameCountFails)
{
    std::free(instSt[TAV_CID_STRG_HDD].datAdr);
    instSt[TAV_CID_STRG_HDD].datAdr = nullptr;
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ param(instSt[i].datAdr) Failure!!");
}

TEST_F(Check, AFailedResizeKeepsTheOldRecords)
{
    machine.change(machineWith(3));
    machine.remove("/opt/qlm/tavkit_sa/work");
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    const std::vector<std::string> lines = linesOf("strgCheckConfigChange");
    const auto failure = std::ranges::find(lines, "3 reallocDatArea() Failure!!");
    ASSERT_NE(failure, lines.end());
    EXPECT_EQ(std::count_if(failure, lines.end(), [](const auto &line) { return line.starts_with("0 memfree"); }), 9);
    EXPECT_EQ(disks().size(), 2U);
    EXPECT_FALSE(machine.exists(kSavedStateFile));

    machine.makeDirectory("/opt/qlm/tavkit_sa/work");
    EXPECT_EQ(strgCheckConfigChange(&cInfo), 0);
    EXPECT_EQ(published<StrgScsiRec>(TAV_CID_STRG_SCSI).size(), 3U);
}

TEST_F(Check, UnlockableSegmentAtTheEndFailsWithoutSaveOrAlert)
{
    AlertRecorder alerts;
    g_srvmod = 1;
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    const std::string before = machine.read(kSavedStateFile);
    machine.change(machineWith(3));
    sim::skipSleeps(true);
    {
        const LockAt lock("strgCheckConfigChange - after -", shmSt[3].mutex.mutex);
        EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
        EXPECT_EQ(lock.lastFailure(), "strgCheckConfigChange _OUT_ setInstToShm(3) Failure!!");
    }
    EXPECT_EQ(machine.read(kSavedStateFile), before);
    EXPECT_TRUE(alerts.records().empty());
}

TEST_F(Check, UnopenableFileFailsThePassAfterPublishing)
{
    machine.makeDirectory(kSavedStateFile);
    machine.change(machineWith(3));
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ fopen Failure!! err=[21]");
    EXPECT_EQ(published<StrgScsiRec>(TAV_CID_STRG_SCSI).size(), 3U);
}

TEST_F(Check, AFileThatCannotBeWrittenFailsItAndTheOldOneStays)
{
    ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
    machine.change(machineWith(3));
    sim::failNth(sim::Call::write, 2);
    EXPECT_EQ(strgCheckConfigChange(&cInfo), -1);
    EXPECT_EQ(linesOf("strgCheckConfigChange").back(), "3 _OUT_ strgPutBinFile() Failure!!");
    EXPECT_EQ(savedDisks(), 2);
}

// Whatever fails once: no pass leaves memory, descriptors or segments, and the next one mends everything.
TEST_F(Check, FailedPassLeaksNothingAndTheNextOneRepairsIt)
{
    trace.reset(); // thousands of lines
    for (const sim::Call kind : {sim::Call::allocate, sim::Call::open, sim::Call::write, sim::Call::stat,
                                 sim::Call::list, sim::Call::uname, sim::Call::segment}) {
        if (kind == sim::Call::allocate && !sim::allocationsCanFail()) {
            continue;
        }
        for (unsigned nth = 1;; ++nth) {
            machine.change(machineWith(nth % 2 == 0 ? 4 : 1));
            sim::failNth(kind, nth);
            strgCheckConfigChange(&cInfo);
            const bool struck = sim::failureStruck();
            sim::failNth(kind, 0);
            ASSERT_EQ(machine.openDescriptors(), 0) << static_cast<int>(kind) << " " << nth;
            ASSERT_EQ(strgCheckConfigChange(&cInfo), 0) << static_cast<int>(kind) << " " << nth;
            ASSERT_EQ(disks().size(), nth % 2 == 0 ? 4U : 1U);
            ASSERT_EQ(published<StrgHddRec>(TAV_CID_STRG_HDD).back().Index, nth % 2 == 0 ? 4 : 1);
            if (!struck) {
                break;
            }
        }
        if (kind == sim::Call::segment) {
            removeSegments();
        } else {
            ASSERT_EQ(segments(), 5) << static_cast<int>(kind);
        }
    }
    trace.emplace();
}

} // namespace
