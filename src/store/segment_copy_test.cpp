// SPDX-License-Identifier: Apache-2.0
#include "support/segment_fixture.h"

using namespace tavstrg;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

using ShmCopy = Segments;

TEST_F(ShmCopy, RecordsGoIntoTheSegmentAndBack)
{
    twoRecords();
    withSegment(2);
    const std::string records(static_cast<const char *>(ins.datAdr), 704);
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    EXPECT_EQ(content(), records);
    std::memset(ins.datAdr, 0, 704);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_EQ(std::string(static_cast<const char *>(ins.datAdr), 704), records);
    EXPECT_THAT(
        linesOf("setInstToShm"),
        ElementsAre("0 _IN_",
                    MatchesRegex("0 memcpy\\(ins.Adr=\\[0x[0-9a-f]+\\]=>shm.Adr=\\[0x[0-9a-f]+\\],ins.Size=\\[352\\]\\*"
                                 "ins.Num=\\[2\\]\\)"),
                    "0 _OUT_ ret=[0]"));
    EXPECT_THAT(
        linesOf("setShmToInst"),
        ElementsAre("0 _IN_",
                    MatchesRegex("0 memcpy\\(shm.Adr=\\[0x[0-9a-f]+\\]=>ins.Adr=\\[0x[0-9a-f]+\\],ins.Size=\\[352\\]\\*"
                                 "shm.Num=\\[2\\]\\)"),
                    "0 _OUT_ ret=[0]"));
}

TEST_F(ShmCopy, NothingStaysAttached)
{
    twoRecords();
    withSegment(2);
    setInstToShm(&cInfo, &ins, &shm);
    setShmToInst(&cInfo, &shm, &ins);
    struct shmid_ds info = {};
    ASSERT_EQ(::shmctl(shm.shmId, IPC_STAT, &info), 0);
    EXPECT_EQ(info.shm_nattch, 0U);
}

TEST_F(ShmCopy, NeverExceedsTheSmallerOfWhatTheTwoHold)
{
    // A sanitizer build also detects a byte too many.
    fill<StrgScsiRec>(ins, {scsiRecord(1, "ONE")});
    withSegment(3);
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    EXPECT_EQ(content().substr(352), std::string(704, '\0'));
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);

    fill<StrgScsiRec>(ins, std::vector<StrgScsiRec>(40, scsiRecord(9, "NINE")));
    shm.shmNum = 40; // what the entry says is not what the segment holds
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    EXPECT_EQ(content().size(), 3U * 352);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_EQ(recordsIn<StrgScsiRec>(ins)[39].Index, 9);
}

TEST_F(ShmCopy, ASegmentThatWasGivenNothingYetGivesNothingBack)
{
    twoRecords();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "ONE") << "its zeros are no records";
}

TEST_F(ShmCopy, NewerStoreRecordsAreNotOverwrittenUntilPublished)
{
    twoRecords();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    ASSERT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    const StrgScsiRec newer[] = {scsiRecord(1, "NEW"), scsiRecord(2, "NEW")};
    ASSERT_TRUE(overwriteRecords(ins, 2, newer, &shm));
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "NEW");
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    std::memset(ins.datAdr, 0, 704);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "NEW") << "from then on the segment is read again";
}

TEST_F(ShmCopy, TextWithoutTerminatorEndsWithItsField)
{
    twoRecords();
    withSegment(2);
    auto *const adr = static_cast<char *>(::shmat(shm.shmId, nullptr, 0));
    std::memset(adr, 'X', 704);
    ::shmdt(adr);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[1].Vendor, std::string(31, 'X').c_str());
}

TEST_F(ShmCopy, AnAttachThatFailsIsTracedAndSkipped)
{
    twoRecords();
    withSegment(2);
    for (const int id : {0, -1, INT_MAX}) {
        const Segment real = segmentNow(shm);
        setSegment(shm, {id, 2, nullptr}, false);
        trace->clear();
        EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0) << id;
        EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0) << id;
        EXPECT_TRUE(trace->has(kFailure, "_OUT_ shmat Failure!! errno=[22]", "setInstToShm")) << id;
        EXPECT_TRUE(trace->has(kFailure, "_OUT_ shmat Failure!! errno=[22]", "setShmToInst")) << id;
        setSegment(shm, real, false);
    }
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "ONE");
}

TEST_F(ShmCopy, EachSegmentCallThatFailsIsTracedAndHarmless)
{
    twoRecords();
    withSegment(2);
    const char *const failures[] = {"_OUT_ shmat Failure!! errno=[12]", "shmctl Failure!! errno=[1]",
                                    "_OUT_ shmdt Failure!! errno=[22]"};
    for (unsigned nth = 1; nth <= 3; ++nth) {
        trace->clear();
        sim::failNth(sim::Call::segment, nth);
        EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
        EXPECT_TRUE(trace->has(kFailure, failures[nth - 1], "setInstToShm")) << failures[nth - 1];
        sim::failNth(sim::Call::segment, nth);
        EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
        EXPECT_TRUE(trace->has(kFailure, failures[nth - 1], "setShmToInst")) << failures[nth - 1];
    }
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "ONE");
}

TEST_F(ShmCopy, ChecksItsArgumentsInOrder)
{
    EXPECT_EQ(setInstToShm(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(setInstToShm(&cInfo, nullptr, nullptr), -1);
    EXPECT_EQ(setInstToShm(&cInfo, &ins, nullptr), -1);
    EXPECT_THAT(linesOf("setInstToShm"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(ins) Failure!!",
                            "0 _IN_", "3 _OUT_ param(shm) Failure!!"));
    EXPECT_EQ(setShmToInst(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(setShmToInst(&cInfo, nullptr, nullptr), -1);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, nullptr), -1);
    EXPECT_THAT(linesOf("setShmToInst"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(shm) Failure!!",
                            "0 _IN_", "3 _OUT_ param(ins) Failure!!"));
}

TEST_F(ShmCopy, InServiceModeAHeldLockFailsAfterThreeSeconds)
{
    twoRecords();
    withSegment(2);
    g_srvmod = 1;
    const Holder held(shm.mutex.mutex);
    sim::skipSleeps(true);
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), -1);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ thmutex_lock Failure!!", "setInstToShm"));
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), -1);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ thmutex_lock Failure!!", "setShmToInst"));
    EXPECT_NEAR(sim::sleptSeconds(), 6.0, 0.02);
}

TEST_F(ShmCopy, ALockThatCannotBeGivenBackFailsTheCopy)
{
    twoRecords();
    withSegment(2);
    loseTheLock();
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), -1);
    EXPECT_EQ(linesOf("setInstToShm").back(), "3 _OUT_ thmutex_unlock Failure!!");
    loseTheLock();
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), -1);
    EXPECT_EQ(linesOf("setShmToInst").back(), "3 _OUT_ thmutex_unlock Failure!!");
}

TEST_F(ShmCopy, OutsideServiceModeNoSegmentLockIsTaken)
{
    twoRecords();
    withSegment(2);
    const Holder held(shm.mutex.mutex);
    EXPECT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &ins), 0);
    EXPECT_THAT(trace->textsOf("shmMutexLock"), IsEmpty());
}

} // namespace
