// SPDX-License-Identifier: Apache-2.0
// What other processes of the broker, and other threads of this one, do at the same moment.
#include "support/segment_fixture.h"

#include <fcntl.h>
#include <sys/file.h>

using namespace tavstrg;

namespace {

using testing::Contains;

constexpr char kTemporaryName[] = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat.tmp";

using Together = Segments;

TEST_F(Together, AKeyFileThatAnotherProcessHasJustMadeIsUsed)
{
    sim::atNth(sim::Call::open, 1, [this] { machine.write(kKeyFile, ""); });
    withSegment(2);
    EXPECT_THAT(linesOf("shmCreate"), Contains("0 shmget[1]=OK. shmId=[" + std::to_string(shm.shmId) + "]"));
}

TEST_F(Together, KeyFileRetiredMeanwhileIsCreatedAgain)
{
    machine.write(kKeyFile, "");
    sim::atNth(sim::Call::segment, 1, [this] { machine.remove(kKeyFile); }); // before ftok looks at it
    withSegment(2);
    EXPECT_THAT(linesOf("shmCreate"), Contains("0 shmget[2]=OK. shmId=[" + std::to_string(shm.shmId) + "]"));
    EXPECT_TRUE(machine.exists(kKeyFile));
}

TEST_F(Together, RetiredKeyFilesBehindAGapAreRemoved)
{
    machine.write(kKeyFile, "");
    const int taken = ::shmget(keyOf(kKeyFile), 8, IPC_CREAT | IPC_EXCL | 0600);
    sim::failNth(sim::Call::segment, 4); // of three attempts, each with ftok and shmget, the second
    sim::atNth(sim::Call::segment, 5, [this] { machine.remove(std::string(kKeyFile) + ".bak.1"); });
    withSegment(2);
    EXPECT_THAT(linesOf("shmCreate"), Contains("0 shmget[3]=OK. shmId=[" + std::to_string(shm.shmId) + "]"));
    EXPECT_FALSE(machine.exists(std::string(kKeyFile) + ".bak.2"));
    ::shmctl(taken, IPC_RMID, nullptr);
}

TEST_F(Together, ReadDuringASegmentExchangeGetsTheOldRecords)
{
    twoRecords();
    withSegment(2);
    DatInfo next = {sizeof(StrgScsiRec), 3, nullptr};
    bool looked = false;
    sim::atNth(sim::Call::segment, 2, [&] { // the old one is removed, and the new one's key is sought
        EXPECT_EQ(segmentNow(shm).num, 0);
        EXPECT_EQ(takeRecordsWithoutSegment(ins, shm), nullptr);
        looked = true;
    });
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &next, &shm), 0);
    EXPECT_TRUE(looked);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[1].Model, "TWO");
    std::free(takeRecords(next));

    shmDestroy(&cInfo, &shm);
    std::free(takeRecordsWithoutSegment(ins, shm));
    EXPECT_EQ(ins.datNum, 0) << "one that is gone for good has no records";
}

TEST_F(Together, StoreUnderConstructionHasNoRecords)
{
    twoRecords();
    DatInfo dat = {};
    gst_first = 1;
    {
        const RecordsReader reader(TAV_CID_STRG_SCSI, dat);
        EXPECT_EQ(dat.datNum, 0);
        EXPECT_EQ(dat.datAdr, nullptr);
    }
    gst_first = 2;
    const RecordsReader reader(TAV_CID_STRG_SCSI, dat);
    EXPECT_EQ(dat.datNum, 2);
}

class SaveTogether : public StoreTest {
protected:
    SaveTogether()
    {
        fillSample(instSt);
        gst_first = kBuilt;
    }
    int error = -1;
};

TEST_F(SaveTogether, AnotherProcessThatSavesIsWaitedForThreeSeconds)
{
    machine.write(kSavedStateFile, "old");
    machine.write(kTemporaryName, "another's");
    const int other = ::open(machine.where(kTemporaryName).c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    sim::skipSleeps(true);
    EXPECT_EQ(strgSaveBinFile(instSt, error), SaveResult::notOpened);
    EXPECT_EQ(error, EWOULDBLOCK);
    EXPECT_NEAR(sim::sleptSeconds(), 3.0, 0.02);
    EXPECT_EQ(machine.read(kSavedStateFile), "old");
    EXPECT_EQ(machine.read(kTemporaryName), "another's");

    sim::atNth(sim::Call::cancelPoint, 2, [other] { ::close(other); }); // it is done
    EXPECT_EQ(strgSaveBinFile(instSt, error), SaveResult::saved);
    EXPECT_FALSE(machine.exists(kTemporaryName));
}

TEST_F(SaveTogether, FileRenamedMeanwhileIsNotWritten)
{
    machine.write(kTemporaryName, "another's");
    sim::atNth(sim::Call::stat, 2, [this] { // between opening it and looking whether it is still there
        ASSERT_EQ(::rename(machine.where(kTemporaryName).c_str(), machine.where(kSavedStateFile).c_str()), 0);
    });
    sim::skipSleeps(true);
    const int kept = ::open(machine.where(kTemporaryName).c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(strgSaveBinFile(instSt, error), SaveResult::saved);
    char text[16] = {};
    EXPECT_EQ(::read(kept, text, sizeof text), 9);
    EXPECT_STREQ(text, "another's");
    ::close(kept);
}

TEST_F(SaveTogether, StoreUnderConstructionIsNotSaved)
{
    machine.write(kSavedStateFile, "old");
    gst_first = 1;
    EXPECT_EQ(strgSaveBinFile(instSt, error), SaveResult::notWritten);
    EXPECT_EQ(strgSetInstance(&cInfo), -1);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ param(instSt[TAV_CID_STRG_CONF].datAdr) Failure!!", "strgSetInstance"));
    EXPECT_EQ(machine.read(kSavedStateFile), "old");
    gst_first = 2;
    EXPECT_EQ(strgSaveBinFile(instSt, error), SaveResult::saved);
}

} // namespace
