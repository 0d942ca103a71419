// SPDX-License-Identifier: Apache-2.0
#include "runtime/holders.h"
#include "support/store_fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>
#include <thread>

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

constexpr char kTemporary[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp";
constexpr char kVictim[] = "/opt/qlm/tavkit_sa/work/victim";
const std::string kOpenTrace = std::string("fopen[") + kSavedStateFile + "]";

class Save : public StoreTest {
protected:
    Save()
    {
        fillSample(instSt);
        gst_first = kBuilt;
    }

    SaveResult save()
    {
        const TraceScope scope("saver");
        return strgSaveBinFile(instSt, error);
    }

    struct stat statOf(const char *path) const
    {
        struct stat info = {};
        ::lstat(machine.where(path).c_str(), &info);
        return info;
    }

    int error = -1;
};

TEST_F(Save, WritesAFileThatOnlyItsOwnerSees)
{
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
    EXPECT_EQ(statOf(kSavedStateFile).st_mode & 0777, 0600U);
    EXPECT_FALSE(machine.exists(kTemporary));
    EXPECT_EQ(sim::liveDescriptors(), 0);
    EXPECT_EQ(trace->textsOf("saver"), (std::vector<std::string>{kOpenTrace, "strgPutBinFile()", "fclose"}));
}

TEST_F(Save, TheFileIsItsOwnersWhateverTheUmask)
{
    for (const mode_t mask : {mode_t(0), mode_t(077), mode_t(0777)}) {
        const mode_t before = ::umask(mask);
        EXPECT_EQ(save(), SaveResult::saved);
        ::umask(before);
        EXPECT_EQ(statOf(kSavedStateFile).st_mode & ALLPERMS, 0600U) << mask;
        EXPECT_EQ(statOf(kSavedStateFile).st_uid, ::geteuid());
    }
}

TEST_F(Save, ReplacesTheFileThatIsThere)
{
    machine.write(kSavedStateFile, std::string(9999, 'o'));
    const ino_t before = statOf(kSavedStateFile).st_ino;
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
    EXPECT_NE(statOf(kSavedStateFile).st_ino, before) << "another file took its place";
}

TEST_F(Save, ATemporaryFileLeftByACrashIsOverwritten)
{
    machine.write(kTemporary, std::string(9999, 'x'));
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
    EXPECT_FALSE(machine.exists(kTemporary));
}

TEST_F(Save, ATemporaryFileThatOthersMayReadIsClosedToThem)
{
    machine.write(kTemporary, "x");
    ASSERT_EQ(::chmod(machine.where(kTemporary).c_str(), 06666), 0);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(statOf(kSavedStateFile).st_mode & ALLPERMS, 0600U);
}

TEST_F(Save, TemporaryFileWithASecondNameKeepsItsContent)
{
    machine.write(kVictim, "precious");
    ASSERT_EQ(::link(machine.where(kVictim).c_str(), machine.where(kTemporary).c_str()), 0);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kVictim), "precious");
    EXPECT_NE(statOf(kSavedStateFile).st_ino, statOf(kVictim).st_ino);
    EXPECT_EQ(statOf(kSavedStateFile).st_mode & ALLPERMS, 0600U);
    EXPECT_FALSE(machine.exists(kTemporary));
}

TEST_F(Save, TemporaryFileOfAnotherOwnerIsReplaced)
{
    machine.write(kTemporary, "x");
    if (::chown(machine.where(kTemporary).c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const FileDesc theirs(::open(machine.where(kTemporary).c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(statOf(kSavedStateFile).st_uid, ::geteuid());
    struct stat info = {};
    ASSERT_EQ(::fstat(theirs.get(), &info), 0);
    EXPECT_EQ(info.st_nlink, 0U);
    EXPECT_EQ(info.st_size, 1) << "an open descriptor does not give access to the state";
    EXPECT_FALSE(machine.exists(kTemporary));
}

TEST_F(Save, AFileThatOthersMayReadIsReplacedByOneThatTheyMayNot)
{
    machine.write(kSavedStateFile, "x");
    ASSERT_EQ(::chmod(machine.where(kSavedStateFile).c_str(), 0666), 0);
    machine.write(kVictim, "precious");
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(statOf(kSavedStateFile).st_mode & ALLPERMS, 0600U);
    machine.remove(kSavedStateFile);
    ASSERT_EQ(::link(machine.where(kVictim).c_str(), machine.where(kSavedStateFile).c_str()), 0);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kVictim), "precious") << "a hard link is replaced too";
}

TEST_F(Save, AStoreThatWasFreedMeanwhileDoesNotReplaceTheFile)
{
    ASSERT_EQ(save(), SaveResult::saved);
    const std::string good = machine.read(kSavedStateFile);
    for (const int id : {TAV_CID_STRG_TNUM, TAV_CID_STRG_CONF}) {
        std::free(takeRecords(instSt[id]));
        EXPECT_EQ(save(), SaveResult::notWritten) << id;
        EXPECT_EQ(machine.read(kSavedStateFile), good) << id;
        EXPECT_FALSE(machine.exists(kTemporary));
    }
}

TEST_F(Save, WithoutADirectoryItIsAFailedOpen)
{
    machine.remove("/opt/qlm/tavkit_sa/data");
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, ENOENT);
    EXPECT_THAT(trace->textsOf("saver"), ElementsAre(kOpenTrace));
}

TEST_F(Save, ADirectoryInPlaceOfTheFileIsAFailedOpen)
{
    machine.makeDirectory(kSavedStateFile);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, EISDIR);
    EXPECT_FALSE(machine.exists(kTemporary));
}

TEST_F(Save, DirectoryInPlaceOfTheTemporaryFileFailsTheOpen)
{
    machine.write(kSavedStateFile, "old");
    machine.makeDirectory(kTemporary);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, EISDIR);
    EXPECT_EQ(machine.read(kSavedStateFile), "old");
}

TEST_F(Save, AFifoInPlaceOfEitherIsAFailedOpenAndNoWait)
{
    ASSERT_EQ(::mkfifo(machine.where(kSavedStateFile).c_str(), 0600), 0);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, ENXIO);
    machine.remove(kSavedStateFile);
    ASSERT_EQ(::mkfifo(machine.where(kTemporary).c_str(), 0600), 0);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, ENXIO);
}

TEST_F(Save, ALinkInPlaceOfTheFileIsReplacedAndNotFollowed)
{
    machine.write(kVictim, "precious");
    machine.link(kSavedStateFile, kVictim);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_TRUE(S_ISREG(statOf(kSavedStateFile).st_mode));
    EXPECT_EQ(machine.read(kVictim), "precious");
}

TEST_F(Save, ALinkInPlaceOfTheTemporaryFileIsAFailedOpen)
{
    machine.write(kVictim, "precious");
    machine.link(kTemporary, kVictim);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, ELOOP);
    EXPECT_EQ(machine.read(kVictim), "precious");
}

// Each call that writes, syncs or renames fails once; the last one syncs the directory, when the new file stands
// already.
TEST_F(Save, AWriteThatFailsKeepsTheOldFileAndLeavesNothingBeside)
{
    const std::string old = "the old state";
    int failures = 0;
    for (unsigned nth = 1;; ++nth) {
        machine.write(kSavedStateFile, old);
        trace->clear();
        sim::failNth(sim::Call::write, nth);
        const SaveResult result = save();
        const bool struck = sim::failureStruck();
        sim::failNth(sim::Call::write, 0);
        EXPECT_FALSE(machine.exists(kTemporary)) << nth;
        EXPECT_EQ(sim::liveDescriptors(), 0) << nth;
        EXPECT_THAT(trace->textsOf("saver"), Contains("fclose"));
        if (result == SaveResult::notWritten) {
            EXPECT_TRUE(struck);
            EXPECT_EQ(machine.read(kSavedStateFile), old) << nth;
            ++failures;
        } else {
            EXPECT_EQ(result, SaveResult::saved);
            EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
        }
        if (!struck) {
            break;
        }
    }
    EXPECT_GE(failures, 4) << "write, flush, sync, rename";
}

TEST_F(Save, AnOpenThatFailsKeepsTheOldFile)
{
    machine.write(kSavedStateFile, "old");
    sim::failNth(sim::Call::open, 1);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, EMFILE);
    EXPECT_EQ(machine.read(kSavedStateFile), "old");
}

TEST_F(Save, SaversAtTheSameMomentLeaveAWholeFile)
{
    std::vector<std::thread> savers;
    for (int i = 0; i < 4; ++i) {
        savers.emplace_back([] {
            for (int n = 0; n < 20; ++n) {
                int failure = 0;
                EXPECT_EQ(strgSaveBinFile(instSt, failure), SaveResult::saved);
            }
        });
    }
    for (std::thread &saver : savers) {
        saver.join();
    }
    OwnedRecords read;
    std::FILE *const file = std::fopen(machine.where(kSavedStateFile).c_str(), "r");
    EXPECT_EQ(strgGetBinFile(file, read.dat), 0);
    std::fclose(file);
}

class SaveAgain : public Save {
protected:
    SaveAgain() { EXPECT_EQ(save(), SaveResult::saved); }

    // Saves. Returns whether that replaced the file. Afterwards only the owner can read it, in both cases.
    bool replaces()
    {
        const ino_t before = statOf(kSavedStateFile).st_ino;
        trace->clear();
        EXPECT_EQ(save(), SaveResult::saved);
        EXPECT_EQ(statOf(kSavedStateFile).st_mode & ALLPERMS, 0600U);
        EXPECT_EQ(statOf(kSavedStateFile).st_nlink, 1U);
        EXPECT_FALSE(machine.exists(kTemporary));
        EXPECT_EQ(sim::liveDescriptors(), 0);
        return statOf(kSavedStateFile).st_ino != before;
    }

    std::vector<std::string> textsWithoutAddresses() const
    {
        std::vector<std::string> texts = trace->texts();
        for (std::string &text : texts) {
            text = std::regex_replace(text, std::regex("0x[0-9a-f]+"), "0x");
        }
        return texts;
    }
};

TEST_F(SaveAgain, TheSameStateIsNotWritten)
{
    const struct stat before = statOf(kSavedStateFile);
    EXPECT_FALSE(replaces());
    const struct stat after = statOf(kSavedStateFile);
    EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
    EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_EQ(after.st_atim.tv_nsec, before.st_atim.tv_nsec) << "reading it changes nothing either";
}

TEST_F(SaveAgain, TheSameStateIsTracedLikeAnotherOne)
{
    machine.write(kSavedStateFile, "another");
    EXPECT_TRUE(replaces());
    const std::vector<std::string> written = textsWithoutAddresses();
    EXPECT_FALSE(replaces());
    EXPECT_EQ(textsWithoutAddresses(), written);
}

TEST_F(SaveAgain, AnotherStateIsWritten)
{
    changeRecords<StrgConfRec>(instSt[TAV_CID_STRG_CONF], [](StrgConfRec &conf) { conf.MonitorCycle = 61; });
    const std::string before = machine.read(kSavedStateFile);
    EXPECT_TRUE(replaces());
    EXPECT_NE(machine.read(kSavedStateFile), before);
}

TEST_F(SaveAgain, AFileThatWasDamagedIsWritten)
{
    const std::string good = machine.read(kSavedStateFile);
    std::string flipped = good;
    flipped.back() = static_cast<char>(~flipped.back());
    for (const std::string &damaged : {flipped, good.substr(0, good.size() - 1), good + "x", std::string()}) {
        machine.write(kSavedStateFile, damaged);
        EXPECT_TRUE(replaces());
        EXPECT_EQ(machine.read(kSavedStateFile), good);
    }
}

TEST_F(SaveAgain, AFileThatWasRemovedIsWritten)
{
    const std::string good = machine.read(kSavedStateFile);
    machine.remove(kSavedStateFile);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_EQ(machine.read(kSavedStateFile), good);
}

TEST_F(SaveAgain, AFileWithAnotherModeIsWritten)
{
    for (const mode_t mode : {mode_t(0644), mode_t(0400), mode_t(04600)}) {
        ASSERT_EQ(::chmod(machine.where(kSavedStateFile).c_str(), mode), 0);
        EXPECT_TRUE(replaces()) << mode;
    }
}

TEST_F(SaveAgain, AFileWithASecondNameIsWritten)
{
    ASSERT_EQ(::link(machine.where(kSavedStateFile).c_str(), machine.where(kVictim).c_str()), 0);
    EXPECT_TRUE(replaces());
}

TEST_F(SaveAgain, AFileOfAnotherOwnerIsWritten)
{
    if (::chown(machine.where(kSavedStateFile).c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    EXPECT_TRUE(replaces());
}

TEST_F(SaveAgain, ALinkToTheSameStateIsReplaced)
{
    const std::string good = machine.read(kSavedStateFile);
    machine.remove(kSavedStateFile);
    machine.write(kVictim, good);
    ASSERT_EQ(::chmod(machine.where(kVictim).c_str(), 0600), 0);
    machine.link(kSavedStateFile, kVictim);
    EXPECT_EQ(save(), SaveResult::saved);
    EXPECT_TRUE(S_ISREG(statOf(kSavedStateFile).st_mode));
}

TEST_F(SaveAgain, WhatACrashLeftBesideTheSameStateGoes)
{
    machine.write(kTemporary, "half");
    EXPECT_TRUE(replaces());
}

// Each way to find out about the file fails once. Not being able to compare is no reason not to save.
TEST_F(SaveAgain, AFileThatCannotBeReadIsWritten)
{
    for (const sim::Call kind : {sim::Call::allocate, sim::Call::open, sim::Call::read, sim::Call::stat}) {
        if (kind == sim::Call::allocate && !sim::allocationsCanFail()) {
            continue;
        }
        const ino_t before = statOf(kSavedStateFile).st_ino;
        sim::failNth(kind, 1);
        EXPECT_EQ(save(), SaveResult::saved);
        EXPECT_TRUE(sim::failureStruck()) << static_cast<int>(kind);
        sim::failNth(kind, 0);
        EXPECT_NE(statOf(kSavedStateFile).st_ino, before) << static_cast<int>(kind);
    }
}

TEST_F(SaveAgain, TheSameStateFailsIfItCannotBeComposed)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the sanitizers have an allocator of their own";
    }
    trace->clear();
    sim::failNth(sim::Call::allocate, 2); // the first one is the comparison's
    EXPECT_EQ(save(), SaveResult::notWritten);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_THAT(trace->textsOf("strgPutBinFile"), Contains("_OUT_ outputAdr alloc Failure!!"));
}

TEST_F(SaveAgain, AReadOnlyDirectoryIsStillAFailure)
{
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root can write to every directory";
    }
    const std::string directory = machine.where("/opt/qlm/tavkit_sa/data");
    ASSERT_EQ(::chmod(directory.c_str(), 0500), 0);
    EXPECT_EQ(save(), SaveResult::notOpened);
    EXPECT_EQ(error, EACCES);
    ASSERT_EQ(::chmod(directory.c_str(), 0700), 0);
}

class SetInstance : public StoreTest {
protected:
    SetInstance()
    {
        fillSample(instSt);
        gst_first = kBuilt;
        EXPECT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
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
};

TEST_F(SetInstance, PublishesAndSavesTheWholeStore)
{
    changeRecords<StrgConfRec>(instSt[TAV_CID_STRG_CONF], [](StrgConfRec &conf) {
        conf.MonitorCycle = 90;
        conf.HardDiskSmartMode = 0;
    });
    gst_SmartMode = 1;
    EXPECT_EQ(strgSetInstance(&cInfo), 0);
    EXPECT_EQ(gst_SleepSec, 90);
    EXPECT_EQ(gst_SmartMode, 0);
    EXPECT_EQ(machine.read(kSavedStateFile).size(), 2074U);
    EXPECT_THAT(linesOf("strgSetInstance"),
                ElementsAre("0 _IN_", "0 setInstToShm(0)", "0 setInstToShm(1)", "0 setInstToShm(2)",
                            "0 setInstToShm(3)", "0 setInstToShm(4)", "0 setInstToShm(5)", "0 setInstToShm(7)",
                            "0 setInstToShm(9)", "0 setInstToShm(10)", "0 " + kOpenTrace, "0 strgPutBinFile()",
                            "0 fclose", "0 _OUT_"));
    std::free(takeRecords(instSt[TAV_CID_STRG_HDD]));
    fill<StrgHddRec>(instSt[TAV_CID_STRG_HDD], std::vector<StrgHddRec>(3));
    EXPECT_EQ(setShmToInst(&cInfo, &shmSt[TAV_CID_STRG_HDD], &instSt[TAV_CID_STRG_HDD]), 0);
    EXPECT_EQ(recordsIn<StrgHddRec>(instSt[TAV_CID_STRG_HDD])[1].Capacity, 2048U);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(SetInstance, WithoutConfigurationItFailsAndGivesTheLockBack)
{
    std::free(takeRecords(instSt[TAV_CID_STRG_CONF]));
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    EXPECT_THAT(linesOf("strgSetInstance"),
                ElementsAre("0 _IN_", "3 _OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!"));
    EXPECT_TRUE(lockIsFree());
    EXPECT_FALSE(machine.exists(kSavedStateFile));
}

TEST_F(SetInstance, ALockThatIsHeldFailsIt)
{
    sim::skipSleeps(true);
    pthread_mutex_lock(&instMutexSt.mutex);
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    pthread_mutex_unlock(&instMutexSt.mutex);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.01);
    EXPECT_THAT(linesOf("strgSetInstance"), ElementsAre("0 _IN_", "3 _OUT_ nonsrvMutexLock(instMutexSt) Failure!!"));
}

TEST_F(SetInstance, ASegmentThatCannotBeLockedFailsIt)
{
    g_srvmod = 1;
    sim::skipSleeps(true);
    pthread_mutex_lock(&shmSt[4].mutex.mutex);
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    pthread_mutex_unlock(&shmSt[4].mutex.mutex);
    EXPECT_EQ(linesOf("strgSetInstance").back(), "3 _OUT_ setInstToShm(4) Failure!!");
    EXPECT_FALSE(machine.exists(kSavedStateFile));
}

TEST_F(SetInstance, AFileNotOpenedFailsBeforeTheUnlock)
{
    machine.makeDirectory(kSavedStateFile);
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    EXPECT_EQ(linesOf("strgSetInstance").back(), "3 _OUT_ fopen Failure!! err=[21]");
    EXPECT_TRUE(lockIsFree());
    const std::vector<std::string> all = trace->texts();
    EXPECT_EQ(all.back(), "_OUT_") << "of mutexUnlock, which comes last";
}

TEST_F(SetInstance, AFileNotWrittenFailsAfterTheUnlock)
{
    sim::failNth(sim::Call::write, 1);
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    EXPECT_EQ(trace->texts().back(), "_OUT_ strgPutBinFile() Failure!!");
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ strgPutBinFile() Failure!!", "strgSetInstance"));
    EXPECT_TRUE(lockIsFree());
}

using FreeInstance = SetInstance;

TEST_F(FreeInstance, FreesEveryArrayAndSegment)
{
    EXPECT_EQ(segments(), 9);
    EXPECT_EQ(strgFreeInstance(&cInfo), 0);
    EXPECT_EQ(segments(), 0);
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(instSt[id].datNum, 0);
        EXPECT_EQ(instSt[id].datAdr, nullptr);
        EXPECT_EQ(shmSt[id].shmNum, 0);
    }
    const std::vector<std::string> lines = linesOf("strgFreeInstance");
    ASSERT_EQ(lines.size(), 2U + 11 * 2 + 9);
    EXPECT_THAT(std::vector(lines.begin(), lines.begin() + 4),
                ElementsAre("0 _IN_", StartsWith("0 memfree(0x"), "0 shmSt(0).shmNum=[1]", "0 shmDestroy(0)"));
    EXPECT_THAT(lines, Contains("0 memfree already NULL"));
    EXPECT_EQ(lines.back(), "0 _OUT_ ret=[0]");
}

TEST_F(FreeInstance, ADestructionThatFailsIsRememberedAndTheRestIsFreed)
{
    const Segment third = segmentNow(shmSt[3]);
    setSegment(shmSt[3], {-1, 2, nullptr}, false);
    EXPECT_EQ(strgFreeInstance(&cInfo), -1);
    EXPECT_THAT(linesOf("strgFreeInstance"), Contains("3 shmDestroy(3) Failure!!"));
    EXPECT_EQ(linesOf("strgFreeInstance").back(), "0 _OUT_ ret=[-1]");
    EXPECT_EQ(segments(), 1);
    EXPECT_EQ(instSt[10].datAdr, nullptr);
    ::shmctl(third.id, IPC_RMID, nullptr);
}

TEST_F(FreeInstance, FreeingTwiceIsHarmless)
{
    EXPECT_EQ(strgFreeInstance(&cInfo), 0);
    EXPECT_EQ(strgFreeInstance(&cInfo), 0);
}

} // namespace
