// SPDX-License-Identifier: Apache-2.0
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "support/lock_at.h"
#include "support/store_fixture.h"

#include <chrono>
#include <condition_variable>
#include <thread>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// A thread that stands for the monitoring thread: it runs and does nothing.
class IdleThread {
public:
    IdleThread() : thread_([this] { idle(); }) { gst_thid = thread_.native_handle(); }
    ~IdleThread()
    {
        {
            const std::lock_guard held(guard_);
            end_ = true;
        }
        wake_.notify_one();
        thread_.join();
        gst_thid = 0;
    }
    IdleThread(const IdleThread &) = delete;
    IdleThread &operator=(const IdleThread &) = delete;

private:
    void idle()
    {
        std::unique_lock held(guard_);
        wake_.wait(held, [this] { return end_; });
    }
    std::mutex guard_;
    std::condition_variable wake_;
    bool end_ = false;
    std::thread thread_;
};

class Get : public StoreTest {
protected:
    explicit Get(const std::string &description = machineWith(2)) : StoreTest(description)
    {
        EXPECT_EQ(strgInitProvider(&cInfo), 0);
        trace->clear();
    }

    bool lockIsFree()
    {
        const bool free = pthread_mutex_trylock(&instMutexSt.mutex) == 0;
        if (free) {
            pthread_mutex_unlock(&instMutexSt.mutex);
        }
        return free;
    }

    // Records that another process of the broker published.
    template <class Rec, class Change> void changeSegment(int id, Change change)
    {
        auto *const records = static_cast<Rec *>(::shmat(shmSt[id].shmId, nullptr, 0));
        change(*records);
        ::shmdt(records);
    }

    bool passed() const { return !trace->textsOf("strgCheckConfigChange").empty(); }

    DatInfo dat = {};
};

TEST_F(Get, OutsideServiceModeADeviceClassIsCheckedFirst)
{
    machine.change(machineWith(3));
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_EQ(dat.datSize, 284U);
    EXPECT_EQ(dat.datNum, 3);
    EXPECT_EQ(dat.datAdr, instSt[TAV_CID_STRG_HDD].datAdr) << "the store's own array";
    EXPECT_THAT(linesOf("strgGetInstance"), ElementsAre("0 _IN_", "0 _OUT_ ret=[0]"));
    EXPECT_TRUE(passed());
    EXPECT_TRUE(lockIsFree());
}

TEST_F(Get, AFailedCheckIsReturnedAfterTheDescriptor)
{
    sim::failNth(sim::Call::uname, 1);
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), -1);
    EXPECT_EQ(dat.datNum, 2);
    EXPECT_THAT(linesOf("strgGetInstance"), ElementsAre("0 _IN_", "0 _OUT_ ret=[-1]"));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(Get, ConfigurationComesFromItsSegmentOutsideServiceMode)
{
    changeSegment<StrgConfRec>(TAV_CID_STRG_CONF, [](StrgConfRec &conf) {
        conf.MonitorCycle = 300;
        conf.HardDiskSmartMode = 0;
    });
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_CONF, &dat), 0);
    EXPECT_EQ(recordsIn<StrgConfRec>(dat)[0].MonitorCycle, 300);
    EXPECT_EQ(gst_SleepSec, 300);
    EXPECT_EQ(gst_SmartMode, 0);
    EXPECT_FALSE(passed());
    EXPECT_THAT(linesOf("strgGetInstance"),
                ElementsAre("0 _IN_", "0 setShmToInst(0)", "0 - return Config -", "0 _OUT_ ret=[0]"));
    EXPECT_THAT(trace->textsOf("strgLogDumpInstanceDat"), Contains("    MonitorCycle             =[300]"));
}

TEST_F(Get, WithoutConfigurationRecordTheConfigurationFails)
{
    std::free(takeRecords(instSt[TAV_CID_STRG_CONF]));
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_CONF, &dat), -1);
    EXPECT_EQ(linesOf("strgGetInstance").back(), "3 _OUT_ param(instST[TAV_CID_STRG_CONF].datAdr) Failure!!");
    EXPECT_TRUE(lockIsFree());
}

TEST_F(Get, ALockHeldForMoreThanThreeSecondsFailsIt)
{
    sim::skipSleeps(true);
    pthread_mutex_lock(&instMutexSt.mutex);
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), -1);
    pthread_mutex_unlock(&instMutexSt.mutex);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.01);
    EXPECT_THAT(linesOf("strgGetInstance"), ElementsAre("0 _IN_", "3 _OUT_ nonsrvMutexLock(instMutexSt) Failure!!"));
    EXPECT_TRUE(trace->has(kFailure, "pthread_mutex_trylock() retry(30) Failre!!", "nonsrvMutexLock"));
    EXPECT_EQ(dat.datAdr, nullptr);
}

TEST_F(Get, ArgumentsAreChecked)
{
    EXPECT_EQ(strgGetInstance(&cInfo, -1, &dat), -1);
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_MAX, &dat), -1);
    EXPECT_EQ(strgGetInstance(&cInfo, 0, nullptr), -1);
    EXPECT_EQ(strgGetInstance(nullptr, 0, &dat), -1);
    EXPECT_THAT(linesOf("strgGetInstance"),
                ElementsAre("0 _IN_", "3 _OUT_ param(classID) Failure!!", "0 _IN_", "3 _OUT_ param(classID) Failure!!",
                            "0 _IN_", "3 _OUT_ param(datInfo) Failure!!", "0 _IN_",
                            "3 _OUT_ nonsrvMutexLock(instMutexSt) Failure!!"));
}

class ServiceGet : public Get {
protected:
    ServiceGet() { g_srvmod = 1; }
    std::optional<IdleThread> thread{std::in_place};
};

TEST_F(ServiceGet, EachRequestReloadsItsClassFromTheSegment)
{
    changeSegment<StrgHddRec>(TAV_CID_STRG_HDD, [](StrgHddRec &disk) { disk.Capacity = 4711; });
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_EQ(recordsIn<StrgHddRec>(dat)[0].Capacity, 4711U);
    EXPECT_EQ(dat.datNum, 2);
    EXPECT_FALSE(passed());
    EXPECT_THAT(linesOf("strgGetInstance"),
                ElementsAre("0 _IN_", "0 setShmToInst(5)", "0 - return TRUE classID=[5]-", "0 _OUT_ ret=[0]"));
    EXPECT_THAT(trace->textsOf("strgLogDumpInstanceDat"), Contains("    Capacity                 =[4711]"));
    EXPECT_TRUE(trace->has(kDetail, "_OUT_ now is ServiceMode.", "nonsrvMutexLock"));
}

TEST_F(ServiceGet, TheConfigurationComesTheSameWayAndIsTaken)
{
    changeSegment<StrgConfRec>(TAV_CID_STRG_CONF, [](StrgConfRec &conf) { conf.MonitorCycle = 20; });
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_CONF, &dat), 0);
    EXPECT_EQ(gst_SleepSec, 20);
    EXPECT_THAT(linesOf("strgGetInstance"), Contains("0 - return TRUE classID=[0]-"));
}

TEST_F(ServiceGet, ClassWithoutSegmentIsDroppedAndItsArrayFreed)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_HDD]);
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_EQ(dat.datNum, 0);
    EXPECT_EQ(dat.datAdr, nullptr);
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datAdr, nullptr);
    EXPECT_THAT(linesOf("strgGetInstance"),
                ElementsAre("0 _IN_", "0 shmSt[5].shmNum=0", testing::StartsWith("0 memfree(0x"),
                            "0 - return TRUE classID=[5]-", "0 _OUT_ ret=[0]"));
}

TEST_F(ServiceGet, ClassThatLostItsSegmentKeepsItsRecords)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_HDD]);
    markLost(shmSt[TAV_CID_STRG_HDD]);
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_EQ(dat.datNum, 2);
    EXPECT_THAT(linesOf("strgGetInstance"), Contains("0 shmSt[5].shmNum=0"));
}

TEST_F(ServiceGet, ThreadOnAFreedStoreHasNoRecordsAndNoConfiguration)
{
    thread.reset();
    ASSERT_EQ(strgFreeInstance(&cInfo), 0);
    thread.emplace();
    trace->clear();
    for (int id = TAV_CID_STRG_TNUM; id < TAV_CID_STRG_MAX; ++id) {
        dat = {1, 1, nullptr};
        EXPECT_EQ(strgGetInstance(&cInfo, id, &dat), 0) << id;
        EXPECT_EQ(dat.datNum, 0);
        EXPECT_EQ(dat.datAdr, nullptr);
    }
    EXPECT_EQ(linesOf("strgGetInstance").back(), "0 _OUT_ ret=[0]");
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_CONF, &dat), -1);
    EXPECT_EQ(linesOf("strgGetInstance").back(), "3 _OUT_ param(instST[TAV_CID_STRG_CONF].datAdr) Failure!!");
}

TEST_F(ServiceGet, StopThatFreesTheStoreMeanwhileFailsTheRead)
{
    shmDestroy(&cInfo, &shmSt[TAV_CID_STRG_HDD]); // the read finds the class empty, before the stop
    const pthread_t running = gst_thid;
    const AtLine stop("- return TRUE classID=[5]-", [] {
        gst_thid = 0; // before anything is freed
        std::free(takeRecords(instSt[TAV_CID_STRG_CONF]));
    });
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), -1);
    gst_thid = running;
}

TEST_F(ServiceGet, StoreWhoseRebuildFailedAnswersNothing)
{
    gst_first = kNotBuilt; // with the records of zeros that the build has left
    for (const int id : {TAV_CID_STRG_CONF, TAV_CID_STRG_TNUM, TAV_CID_STRG_HDD}) {
        EXPECT_EQ(strgGetInstance(&cInfo, id, &dat), -1) << id;
        EXPECT_EQ(dat.datNum, 0);
    }
    gst_first = kBuilt;
}

TEST_F(ServiceGet, ASegmentThatCannotBeLockedFailsIt)
{
    sim::skipSleeps(true);
    for (const int id : {0, 5}) {
        trace->clear();
        pthread_mutex_lock(&shmSt[id].mutex.mutex);
        EXPECT_EQ(strgGetInstance(&cInfo, id, &dat), -1);
        pthread_mutex_unlock(&shmSt[id].mutex.mutex);
        EXPECT_EQ(linesOf("strgGetInstance").back(), "3 _OUT_ setShmToInst(" + std::to_string(id) + ") Failure!!");
    }
}

TEST_F(ServiceGet, StoreLockIsNotTakenButUnlocked)
{
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_THAT(trace->textsOf("nonsrvMutexLock"), Not(Contains("pthread_mutex_trylock()")));
    EXPECT_THAT(trace->textsOf("mutexUnlock"), Not(IsEmpty()));
}

TEST_F(ServiceGet, WithoutTheThreadADeviceClassIsCheckedFirst)
{
    thread.reset();
    machine.change(machineWith(1));
    EXPECT_EQ(strgGetInstance(&cInfo, TAV_CID_STRG_HDD, &dat), 0);
    EXPECT_EQ(dat.datNum, 1);
    EXPECT_TRUE(passed());
}

// A disk that predicts its failure, and one whose endurance is known.
class FirstPass : public Get {
protected:
    FirstPass()
        : Get(R"({"kernel": "6.1.0", "hosts": [{"driver": "ahci", "devices": [
                    {"ata": true, "id": 0, "model": "MODEL-0", "smart": {"failing": true}},
                    {"ata": true, "id": 1, "model": "HALDEN M2S 256GB",
                     "smart": {"attributes": [{"id": 231, "flags": 50, "current": 50}]}}]}],
                  "files": {"storage.inf": "ahci\n",
                            "tavm2ssd.inf": "[Endurance Remaining]\nHALDEN M2S 256GB,231,100,80,60,40,20,0\n"}})")
    {
        g_srvmod = 1;
        sim::holdSleeps(true);
    }
    ~FirstPass() override { sim::holdSleeps(false); }

    template <class Rec> std::vector<Rec> answered(int id)
    {
        EXPECT_EQ(strgGetInstance(&cInfo, id, &dat), 0);
        return recordsIn<Rec>(dat);
    }
};

TEST_F(FirstPass, ReplacesWhatTheFirstCollectionLeft)
{
    ASSERT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2);
    ASSERT_EQ(instSt[TAV_CID_STRG_LIFE].datNum, 1);
    EXPECT_EQ(recordsIn<StrgHddRec>(instSt[TAV_CID_STRG_HDD])[0].SmartStatus, 0);
    EXPECT_EQ(recordsIn<StrgLifeRec>(instSt[TAV_CID_STRG_LIFE])[0].EnduranceRemaining, -1);
    ASSERT_EQ(strgCreateThread(&cInfo), 0);
    ASSERT_TRUE(sim::awaitSleep(1, 60));
    EXPECT_EQ(answered<StrgHddRec>(TAV_CID_STRG_HDD).at(0).SmartStatus, 1);
    EXPECT_EQ(answered<StrgHddRec>(TAV_CID_STRG_HDD).at(1).SmartStatus, 0);
    EXPECT_EQ(answered<StrgLifeRec>(TAV_CID_STRG_LIFE).at(0).EnduranceRemaining, 3);
    strgExitThread(&cInfo);
}

// Readers of an array that is replaced, resized, dropped and reloaded all the time see whole records only.
TEST_F(ServiceGet, ReadersSeeNoTornRecordWhilePassesReplaceThem)
{
    trace.reset(); // thousands of lines
    std::atomic<bool> stop = false;
    std::vector<std::thread> readers;
    std::atomic<int> reads = 0;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                DatInfo mine = {};
                strgGetInstance(&cInfo, TAV_CID_STRG_SCSI, &mine);
                const RecordsReader reader(TAV_CID_STRG_SCSI, mine);
                const auto *const records = static_cast<const StrgScsiRec *>(mine.datAdr);
                for (int n = 0; n < mine.datNum; ++n) {
                    ASSERT_EQ(records[n].Index, n + 1);
                    ASSERT_STREQ(records[n].SerialNumber, ("SERIAL-" + std::to_string(n)).c_str());
                }
                ASSERT_THAT(mine.datNum, testing::AnyOf(0, 1, 2, 5));
                ++reads;
                // Polled locks are not fair: readers without a pause would starve a pass.
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    for (int round = 0; round < 60 || reads < 50; ++round) {
        const int disks[] = {5, 1, 0, 2};
        machine.change(machineWith(disks[round % 4]));
        ASSERT_EQ(strgCheckConfigChange(&cInfo), 0);
        ASSERT_EQ(recordsNow(instSt[TAV_CID_STRG_SCSI]).datNum, disks[round % 4]);
    }
    stop = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
    trace.emplace();
}

} // namespace
