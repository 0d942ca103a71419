// SPDX-License-Identifier: Apache-2.0
#include "lifecycle/access.h"
#include "support/lock_at.h"
#include "support/store_fixture.h"

#include <atomic>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace tavstrg;

// The collector as it is, but that a test may let it have read what this machine's disks do not say. The program is
// linked so that the store's calls come here.
extern "C" int realCollector(int smartmode, DatInfo *descriptors) __asm__("__real__Z18strgGetCurrentInfoiP7DatInfo");
extern "C" int testedCollector(int smartmode, DatInfo *descriptors) __asm__("__wrap__Z18strgGetCurrentInfoiP7DatInfo");

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Two disks, of which the first predicts its failure.
const std::string kMachine = R"({
  "kernel": "6.1.0",
  "hosts": [{"driver": "ahci", "devices": [
    {"ata": true, "id": 0, "model": "MODEL-0", "serial": "SERIAL-0", "smart": {"failing": true}},
    {"ata": true, "id": 1, "model": "MODEL-1", "serial": "SERIAL-1"}]}],
  "files": {"storage.inf": "ahci\n"}})";

// Whether the collector below has read a predicted failure on every disk and the endurance of one.
bool g_measuring = false;

class Init : public StoreTest {
protected:
    explicit Init(const std::string &description = kMachine) : StoreTest(description) {}

    // The state that an earlier run saved: one disk that this machine does not have.
    static std::string savedState()
    {
        OwnedRecords records;
        fillSample(records.dat);
        fill<StrgConfRec>(records.dat[TAV_CID_STRG_CONF], {{120, 10, 3600, 60, 0, 0}});
        std::string bytes = "# Version=1.0.0.1\n";
        for (const DatInfo &dat : records.dat) {
            if (dat.datAdr != nullptr) {
                bytes.append(static_cast<const char *>(dat.datAdr), dat.datSize * static_cast<size_t>(dat.datNum));
            }
        }
        return bytes;
    }

    bool collected() const { return !trace->textsOf("strgGetCurrentInfo").empty(); }

    template <class Rec> Rec stored(int id, size_t i = 0) { return recordsIn<Rec>(instSt[id]).at(i); }
};

TEST_F(Init, WithoutASavedStateTheFirstCollectionBuildsTheStore)
{
    EXPECT_EQ(strgInitInstance(&cInfo), 0);
    const std::vector<std::string> lines = linesOf("strgInitInstance");
    std::vector<std::string> expected = {"0 _IN_"};
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        expected.push_back("0 pthread_mutex_init(" + std::to_string(id) + ")");
    }
    for (const char *const line :
         {"0 fopen-check[/opt/qlm/tavkit_sa/data/tavstrgsave.dat]", "0 fp=[(nil)]", "0 strgGetBinFile() Not read",
          "0 strgGetCurrentInfo()", "0 - to shm -", "0 shmNew(10,/opt/qlm/tavkit_sa/work/tavstrgshm.key)",
          "0 setInstToShm(0)", "0 setInstToShm(1)", "0 setInstToShm(2)", "0 setInstToShm(3)", "0 setInstToShm(5)",
          "0 _OUT_"}) {
        expected.emplace_back(line);
    }
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(segments(), 5);
    EXPECT_FALSE(machine.exists(kSavedStateFile)) << "the first monitoring pass writes it";
    EXPECT_TRUE(trace->has(kDetail, "++++ TAV_StorageHardDisk[1] ++++", "strgLogDumpInstanceDat"));
}

TEST_F(Init, FirstCollectionHasDefaultConfigurationAndTotals)
{
    gst_SmartMode = 0;
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    EXPECT_TRUE(trace->has(kDetail, "_IN_ smartmode=[0]", "strgGetCurrentInfo")) << "of a process that just started";
    const auto conf = stored<StrgConfRec>(TAV_CID_STRG_CONF);
    EXPECT_EQ(conf.MonitorCycle, 60);
    EXPECT_EQ(conf.MonitorCycleMin, 10);
    EXPECT_EQ(conf.MonitorCycleMax, 3600);
    EXPECT_EQ(conf.MonitorCycleDefault, 60);
    EXPECT_EQ(conf.HardDiskSmartMode, 1);
    EXPECT_EQ(conf.reserved, 0);
    EXPECT_EQ(gst_SleepSec, 60);
    EXPECT_EQ(gst_SmartMode, 1);
    const auto totals = stored<StrgTnumRec>(TAV_CID_STRG_TNUM);
    const StrgTnumRec expected = {1, 2, 0, 2, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&totals, &expected, sizeof totals), 0);
}

TEST_F(Init, FirstCollectionHasSmartStatus0AndEnduranceMinus1)
{
    g_measuring = true;
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    g_measuring = false;
    ASSERT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2);
    ASSERT_EQ(instSt[TAV_CID_STRG_LIFE].datNum, 1);
    EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD, 0).SmartStatus, 0) << "the collection read 1";
    EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD, 1).SmartStatus, 0);
    EXPECT_EQ(stored<StrgLifeRec>(TAV_CID_STRG_LIFE).EnduranceRemaining, -1) << "the collection read 5";
    EXPECT_EQ(stored<StrgTnumRec>(TAV_CID_STRG_TNUM).LifeSpanTotalNumber, 1);
}

TEST_F(Init, ALaterFirstCollectionGetsTheModeOfBefore)
{
    gst_SmartMode = 1; // a stop leaves it
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    EXPECT_TRUE(trace->has(kDetail, "_IN_ smartmode=[1]", "strgGetCurrentInfo"));
}

TEST_F(Init, ASavedStateThatLoadsMeansNoCollection)
{
    machine.write(kSavedStateFile, savedState());
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    EXPECT_FALSE(collected());
    EXPECT_THAT(machine.commands(), IsEmpty()) << "no device was asked";
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 3) << "the saved hardware";
    EXPECT_EQ(stored<StrgHddRec>(TAV_CID_STRG_HDD, 1).SmartStatus, 1) << "what was saved stays as it was";
    EXPECT_EQ(stored<StrgLifeRec>(TAV_CID_STRG_LIFE, 0).EnduranceRemaining, 5);
    EXPECT_EQ(gst_SleepSec, 120);
    EXPECT_EQ(gst_SmartMode, 0);
    const std::vector<std::string> texts = trace->textsOf("strgInitInstance");
    const auto opened = std::ranges::find_if(texts, [](const std::string &text) { return text.starts_with("fp=[0x"); });
    ASSERT_NE(opened, texts.end());
    EXPECT_THAT(std::vector(opened + 1, opened + 4), ElementsAre("strgGetBinFile()", "fclose", "- to shm -"));
    EXPECT_EQ(sim::liveDescriptors(), 0);
}

TEST_F(Init, ASavedStateThatBreaksOffCountsForNothing)
{
    const std::string whole = savedState();
    for (const size_t length :
         {size_t(0), size_t(17), size_t(18 + 11), size_t(18 + 12 + 19), size_t(1000), whole.size() - 1}) {
        machine.write(kSavedStateFile, whole.substr(0, length));
        trace->clear();
        ASSERT_EQ(strgInitInstance(&cInfo), 0) << length;
        EXPECT_TRUE(trace->has(kDetail, "strgGetBinFile() Not read", "strgInitInstance"));
        EXPECT_TRUE(collected());
        EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2) << "the machine's, not the file's";
        EXPECT_EQ(instSt[TAV_CID_STRG_IDE].datNum, 0);
        EXPECT_EQ(stored<StrgConfRec>(TAV_CID_STRG_CONF).MonitorCycle, 60);
        EXPECT_EQ(stored<StrgTnumRec>(TAV_CID_STRG_TNUM).HardDiskTotalNumber, 2);
    }
}

TEST_F(Init, AHalfReadStateIsFreedEvenWhenTheCollectionFails)
{
    machine.write(kSavedStateFile, savedState().substr(0, 1500));
    sim::failNth(sim::Call::uname, 1);
    ASSERT_EQ(strgInitInstance(&cInfo), -1);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(instSt[id].datNum, 0) << id;
        EXPECT_EQ(instSt[id].datAdr, nullptr) << id;
    }
    EXPECT_EQ(stored<StrgConfRec>(TAV_CID_STRG_CONF).MonitorCycle, 0);
    EXPECT_EQ(stored<StrgTnumRec>(TAV_CID_STRG_TNUM).HardDiskTotalNumber, 0);
}

TEST_F(Init, WhatCannotBeOpenedForUpdateCountsAsAbsent)
{
    machine.makeDirectory(kSavedStateFile);
    EXPECT_EQ(strgInitInstance(&cInfo), 0);
    EXPECT_TRUE(trace->has(kDetail, "fp=[(nil)]", "strgInitInstance"));
    EXPECT_TRUE(collected());

    machine.remove(kSavedStateFile);
    ASSERT_EQ(::mkfifo(machine.where(kSavedStateFile).c_str(), 0600), 0);
    trace->clear();
    EXPECT_EQ(strgInitInstance(&cInfo), 0) << "a FIFO is not waited for";
    EXPECT_TRUE(trace->has(kDetail, "fp=[(nil)]", "strgInitInstance"));

    for (const char *const target : {"/opt/qlm/tavkit_sa/nowhere", "/opt/qlm/tavkit_sa/elsewhere"}) {
        machine.write("/opt/qlm/tavkit_sa/elsewhere", savedState());
        machine.remove(kSavedStateFile);
        machine.link(kSavedStateFile, target);
        trace->clear();
        EXPECT_EQ(strgInitInstance(&cInfo), 0);
        EXPECT_TRUE(trace->has(kDetail, "fp=[(nil)]", "strgInitInstance")) << "a link is not followed to " << target;
        EXPECT_TRUE(collected());
    }
    EXPECT_EQ(sim::liveDescriptors(), 0);
}

// While one lives, modes of files count for this thread even where it is root's.
class BoundByModes {
public:
    BoundByModes()
    {
        EXPECT_EQ(::syscall(SYS_capget, &header_, before_), 0);
        __user_cap_data_struct bound[] = {before_[0], before_[1]};
        bound[0].effective &= ~(1U << CAP_DAC_OVERRIDE);
        EXPECT_EQ(::syscall(SYS_capset, &header_, bound), 0);
    }
    ~BoundByModes() { ::syscall(SYS_capset, &header_, before_); }
    BoundByModes(const BoundByModes &) = delete;
    BoundByModes &operator=(const BoundByModes &) = delete;

private:
    __user_cap_header_struct header_ = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct before_[_LINUX_CAPABILITY_U32S_3] = {};
};

TEST_F(Init, ASavedStateThatMayOnlyBeReadCountsAsAbsent)
{
    machine.write(kSavedStateFile, savedState());
    ASSERT_EQ(::chmod(machine.where(kSavedStateFile).c_str(), 0400), 0);
    {
        const BoundByModes bound;
        EXPECT_EQ(strgInitInstance(&cInfo), 0);
    }
    EXPECT_THAT(linesOf("strgInitInstance"), Contains("0 fp=[(nil)]"));
    EXPECT_THAT(linesOf("strgInitInstance"), Contains("0 strgGetBinFile() Not read"));
    EXPECT_TRUE(collected());
    EXPECT_EQ(instSt[TAV_CID_STRG_HDD].datNum, 2) << "the machine's, not the file's";
}

TEST_F(Init, TheEnduranceTableIsReadBeforeTheSavedState)
{
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    const std::vector<TraceRecord> records = trace->records();
    const auto table = std::ranges::find(records, "strgGetInfFile", &TraceRecord::function);
    const auto check =
        std::ranges::find_if(records, [](const TraceRecord &r) { return r.text.starts_with("fopen-check"); });
    const auto lastLock = std::ranges::find(records, "pthread_mutex_init(10)", &TraceRecord::text);
    EXPECT_LT(lastLock, table);
    EXPECT_LT(table, check);
    EXPECT_NE(check, records.end());
}

TEST_F(Init, ACollectionThatFailsFailsIt)
{
    sim::failNth(sim::Call::uname, 1);
    EXPECT_EQ(strgInitInstance(&cInfo), -1);
    EXPECT_EQ(linesOf("strgInitInstance").back(), "3 _OUT_ strgGetCurrentInfo() Failure!!");
    EXPECT_EQ(segments(), 0);
}

TEST_F(Init, RetiredKeyFilesOfAKilledProcessAreRemoved)
{
    const std::string key = kShmKeyFileBase;
    const std::vector<std::string> retired = {key + "3.bak.1", key + "3.bak.3", key + "3.bak.65535", key + "10.bak.7"};
    const std::vector<std::string> others = {key + "3.bak.", key + "3.bak.1x", key + ".bak.1", key + "3.bak.1.old",
                                             "/opt/qlm/tavkit_sa/work/other3.bak.1"};
    for (const std::vector<std::string> &files : {retired, others}) {
        for (const std::string &file : files) {
            machine.write(file, "");
        }
    }
    EXPECT_EQ(strgInitInstance(&cInfo), 0);
    for (const std::string &file : retired) {
        EXPECT_FALSE(machine.exists(file)) << file;
        EXPECT_THAT(linesOf("strgInitInstance"), Contains("0 unlink[" + file + "]"));
    }
    for (const std::string &file : others) {
        EXPECT_TRUE(machine.exists(file)) << file;
    }
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(Init, SegmentsThatCannotBeMadeFailIt)
{
    machine.remove("/opt/qlm/tavkit_sa/work");
    EXPECT_EQ(strgInitInstance(&cInfo), -1);
    EXPECT_EQ(linesOf("strgInitInstance").back(), "3 _OUT_ shmNew() Failure!!");
    EXPECT_EQ(segments(), 0);
}

TEST_F(Init, ASegmentThatCannotBeLockedFailsIt)
{
    g_srvmod = 1;
    sim::skipSleeps(true);
    const LockAt lock("setInstToShm(3)", shmSt[3].mutex.mutex);
    EXPECT_EQ(strgInitInstance(&cInfo), -1);
    EXPECT_EQ(lock.lastFailure(), "strgInitInstance _OUT_ setInstToShm(3) Failure!!");
}

TEST_F(Init, SegmentsOfALateFailedBuildAreReplaced)
{
    machine.write(kSavedStateFile, savedState());
    g_srvmod = 1;
    sim::skipSleeps(true);
    for (const int last : {3, 10}) {
        const std::string line = "setInstToShm(" + std::to_string(last) + ")";
        {
            const LockAt lock(line.c_str(), shmSt[last].mutex.mutex);
            ASSERT_EQ(strgInitInstance(&cInfo), -1);
            EXPECT_EQ(segments(), 9) << "what was built stays in place";
        }
        EXPECT_EQ(strgInitInstance(&cInfo), 0);
        EXPECT_EQ(segments(), 9);
    }
}

TEST_F(Init, WithoutMemoryForTheTwoRecordsItFails)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    sim::failNth(sim::Call::allocate, 1);
    EXPECT_EQ(strgInitInstance(&cInfo), -1);
    EXPECT_THAT(linesOf("strgInitInstance"), ElementsAre("0 _IN_", "3 _OUT_ StrgConf alloc Failure!!"));
    trace->clear();
    sim::failNth(sim::Call::allocate, 2);
    EXPECT_EQ(strgInitInstance(&cInfo), -1);
    EXPECT_THAT(linesOf("strgInitInstance"), ElementsAre("0 _IN_", "3 _OUT_ StrgTnum alloc Failure!!"));
}

TEST_F(Init, RemainsOfAFailedBuildAreFreedBeforeTheNext)
{
    for (int round = 0; round < 3; ++round) {
        machine.remove("/opt/qlm/tavkit_sa/work");
        ASSERT_EQ(strgInitInstance(&cInfo), -1);
        EXPECT_NE(instSt[TAV_CID_STRG_HDD].datAdr, nullptr) << "what was built stays in place";
        machine.makeDirectory("/opt/qlm/tavkit_sa/work");
        ASSERT_EQ(strgInitInstance(&cInfo), 0);
        EXPECT_EQ(segments(), 5);
    }
}

TEST_F(Init, OnlyTheEntryOfTheLifeSpanIsLeftAsItIs)
{
    for (const int id : {9, 10}) {
        setSegment(shmSt[id], {-1, 4, nullptr}, false);
    }
    strgInitInstance(&cInfo);
    EXPECT_TRUE(trace->has(kDetail, "9: shmAdr=[(nil)] shmNum=[0] instNum=[0]", "shmNew"));
    EXPECT_TRUE(trace->has(kDetail, "10: shmAdr=[(nil)] shmNum=[4] instNum=[0]", "shmNew"));
}

TEST_F(Init, DestroyedLockIsRenewedAndALiveOneKept)
{
    destroyMutex(instMutexSt);
    destroyMutex(shmSt[2].mutex);
    pthread_mutex_lock(&shmSt[3].mutex.mutex);
    ASSERT_EQ(strgInitInstance(&cInfo), 0);
    EXPECT_TRUE(instMutexSt.live);
    EXPECT_TRUE(shmSt[2].mutex.live);
    EXPECT_EQ(pthread_mutex_trylock(&shmSt[2].mutex.mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&shmSt[3].mutex.mutex), EBUSY) << "still held";
    pthread_mutex_unlock(&shmSt[2].mutex.mutex);
    pthread_mutex_unlock(&shmSt[3].mutex.mutex);
}

TEST_F(Init, TheStoreMutexIsMadeUnlessItIsInUse)
{
    destroyMutex(instMutexSt);
    EXPECT_EQ(strgInitStoreMutex(), 0);
    EXPECT_TRUE(instMutexSt.live);
    pthread_mutex_lock(&instMutexSt.mutex);
    EXPECT_EQ(strgInitStoreMutex(), 0);
    EXPECT_EQ(pthread_mutex_trylock(&instMutexSt.mutex), EBUSY) << "a factory that runs again breaks no lock";
    pthread_mutex_unlock(&instMutexSt.mutex);
}

// Each failure of each kind of call ends the initialisation or is tolerated; neither leaves anything behind.
TEST_F(Init, NoFailureOfAnyCallLeavesSegmentsOrDescriptors)
{
    trace.reset(); // thousands of lines
    for (const sim::Call kind : {sim::Call::open, sim::Call::read, sim::Call::list, sim::Call::stat, sim::Call::segment,
                                 sim::Call::ioctl, sim::Call::uname, sim::Call::allocate}) {
        if (kind == sim::Call::allocate && !sim::allocationsCanFail()) {
            continue;
        }
        for (unsigned nth = 1;; ++nth) {
            sim::failNth(kind, nth);
            const int ret = strgInitInstance(&cInfo);
            const bool struck = sim::failureStruck();
            sim::failNth(kind, 0);
            ASSERT_EQ(machine.openDescriptors(), 0) << static_cast<int>(kind) << " " << nth;
            strgFreeInstance(&cInfo);
            // A removal that was made to fail leaves its segment; no other failure may.
            if (kind != sim::Call::segment) {
                ASSERT_EQ(segments(), 0) << static_cast<int>(kind) << " " << nth;
            }
            if (!struck) {
                ASSERT_EQ(ret, 0);
                break;
            }
        }
    }
    removeSegments();
    trace.emplace();
}

// A stop waits for the lock under which the store is built. If the store counted as built only after that lock was
// given back, the stop would free it as one that is not, and the builder would then call the freed store built.
TEST_F(Init, StoreIsBuiltBeforeAStopThatWaitsCanFreeIt)
{
    gst_first = kBuilding; // as strgInitProvider sets it
    int32_t atTheEnd = kNotBuilt;
    bool locked = false;
    {
        const AtLine look("strgInitInstance _OUT_", [&] {
            atTheEnd = gst_first;
            std::thread([&] { locked = !std::unique_lock(g_collectionLock, std::try_to_lock).owns_lock(); }).join();
        });
        ASSERT_EQ(strgInitInstance(&cInfo), 0);
    }
    EXPECT_TRUE(locked) << "a stop still waits";
    EXPECT_EQ(atTheEnd, kBuilt);
}

class Gate : public Init {};

TEST_F(Gate, TheFirstRequestBuildsTheStoreAndLaterOnesFindItBuilt)
{
    EXPECT_EQ(strgInitProvider(&cInfo), 0);
    EXPECT_EQ(gst_first, 2);
    EXPECT_THAT(linesOf("strgInitProvider"),
                ElementsAre("0 _IN_ gst_first=[0]", "0 strgInitInstance()", "0 _OUT_ ret=[0]"));
    trace->clear();
    EXPECT_EQ(strgInitProvider(&cInfo), 0);
    EXPECT_THAT(linesOf("strgInitProvider"), ElementsAre("0 _IN_ gst_first=[2]", "0 _OUT_ Already Initialize."));
    EXPECT_FALSE(collected());
}

TEST_F(Gate, AFailedInitialisationIsTriedAgainByTheNextRequest)
{
    sim::failNth(sim::Call::uname, 1);
    EXPECT_EQ(strgInitProvider(&cInfo), -1);
    EXPECT_EQ(gst_first, 0);
    EXPECT_EQ(linesOf("strgInitProvider").back(), "0 _OUT_ ret=[-1]");
    EXPECT_EQ(strgInitProvider(&cInfo), 0);
    EXPECT_EQ(gst_first, 2);
}

TEST_F(Gate, ThirtyWaitsOfOneTenthSecondAreAFailure)
{
    sim::skipSleeps(true);
    gst_first = 1;
    EXPECT_EQ(strgInitProvider(&cInfo), -1);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.01);
    EXPECT_THAT(linesOf("strgInitProvider"), ElementsAre("0 _IN_ gst_first=[1]", "3 _OUT_ gst_first Failure!!"));
    EXPECT_EQ(gst_first, 1) << "the other goes on";
}

// What is counted are the waits, not what came of the last.
TEST_F(Gate, AnInitialisationThatEndsDuringTheLastWaitCameTooLate)
{
    sim::skipSleeps(true);
    const struct {
        unsigned wait; // in which it ends
        int ret;
        const char *told;
    } cases[] = {{29, 0, "0 _OUT_ Already Initialize."}, {30, -1, "3 _OUT_ gst_first Failure!!"}};
    for (const auto &c : cases) {
        gst_first = 1;
        sim::atNth(sim::Call::cancelPoint, c.wait, [] { gst_first = 2; });
        EXPECT_EQ(strgInitProvider(&cInfo), c.ret) << c.wait;
        EXPECT_EQ(gst_first, 2) << c.wait;
        EXPECT_EQ(linesOf("strgInitProvider").back(), c.told);
    }
}

TEST_F(Gate, OneOfManySimultaneousFirstRequestsBuildsTheStore)
{
    std::vector<std::thread> requests;
    std::atomic<bool> start = false;
    std::atomic<int> done = 0;
    for (int i = 0; i < 8; ++i) {
        requests.emplace_back([&] {
            while (!start) {
            }
            done += strgInitProvider(&cInfo) == 0 ? 1 : 0;
        });
    }
    start = true;
    for (std::thread &thread : requests) {
        thread.join();
    }
    EXPECT_EQ(done, 8);
    const std::vector<std::string> texts = trace->textsOf("strgInitProvider");
    EXPECT_EQ(std::ranges::count(texts, "strgInitInstance()"), 1);
    EXPECT_EQ(std::ranges::count(texts, "_OUT_ Already Initialize."), 7);
    EXPECT_EQ(trace->textsOf("strgInitInstance").front(), "_IN_");
}

// A machine whose only disk takes its time over every command.
class SlowGate : public Init {
protected:
    SlowGate()
        : Init(R"({"kernel": "6.1.0", "hosts": [{"driver": "ahci", "devices": [{"ata": true, "delayMs": 120}]}],
                   "files": {"storage.inf": "ahci\n"}})")
    {
    }

    // Runs other while the first request builds the store.
    template <class Other> void duringFirst(Other other)
    {
        std::thread first([&] { EXPECT_EQ(strgInitProvider(&cInfo), 0); });
        while (gst_first != 1) {
            std::this_thread::yield();
        }
        other();
        first.join();
    }
};

TEST_F(SlowGate, ALaterFirstRequestWaitsForTheOneThatInitialises)
{
    duringFirst([&] { EXPECT_EQ(strgInitProvider(&cInfo), 0); });
    EXPECT_THAT(trace->textsOf("strgInitProvider"), Contains("_IN_ gst_first=[1]"));
    EXPECT_THAT(trace->textsOf("strgInitProvider"), Contains("_OUT_ Already Initialize."));
}

TEST_F(SlowGate, SecondRequestFailsIfTheFirstCollectionIsTooSlow)
{
    duringFirst([&] {
        sim::skipSleeps(true); // its three seconds pass during the first commands to the disk
        EXPECT_EQ(strgInitProvider(&cInfo), -1);
        sim::skipSleeps(false);
    });
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ gst_first Failure!!", "strgInitProvider"));
    EXPECT_EQ(gst_first, 2) << "the first one succeeds all the same";
}

} // namespace

int testedCollector(int smartmode, DatInfo *descriptors)
{
    const int ret = realCollector(smartmode, descriptors);
    if (ret == 0 && g_measuring) {
        for (int i = 0; i < descriptors[TAV_CID_STRG_HDD].datNum; ++i) {
            static_cast<StrgHddRec *>(descriptors[TAV_CID_STRG_HDD].datAdr)[i].SmartStatus = 1;
        }
        fill<StrgLifeRec>(descriptors[TAV_CID_STRG_LIFE], {{1, 1, 5, 0}});
    }
    return ret;
}
