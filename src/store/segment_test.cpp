// SPDX-License-Identifier: Apache-2.0
#include "support/segment_fixture.h"

using namespace tavstrg;

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

using ShmDestroy = Segments;

TEST_F(ShmDestroy, RemovesTheSegmentAndEmptiesTheEntry)
{
    withSegment(2);
    const int id = shm.shmId;
    EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    EXPECT_EQ(sizeOf(id), 0U);
    EXPECT_EQ(shm.shmId, -1);
    EXPECT_EQ(shm.shmNum, 0);
    EXPECT_EQ(shm.shmAdr, nullptr);
    EXPECT_EQ(segments(), 0);
}

TEST_F(ShmDestroy, ChecksItsArguments)
{
    EXPECT_EQ(shmDestroy(nullptr, nullptr), -1);
    EXPECT_EQ(shmDestroy(nullptr, &shm), -1);
    EXPECT_EQ(shmDestroy(&cInfo, &shm), -1) << "an identifier of 0 is none";
    EXPECT_THAT(linesOf("shmDestroy"),
                ElementsAre("0 _IN_", "3 _OUT_ param(shmInfo) Failure!!", "0 _IN_", "3 _OUT_ param(cInfo) Failure!!",
                            "0 _IN_", "3 _OUT_ param(shmId) Failure!!"));
}

TEST_F(ShmDestroy, ASegmentThatCannotBeRemovedIsForgottenAllTheSame)
{
    setSegment(shm, {INT_MAX, 2, nullptr}, false);
    EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    EXPECT_TRUE(trace->has(kFailure, "shmctl Failure!! errno=[22]", "shmDestroy"));
    EXPECT_EQ(shm.shmId, -1);
}

TEST_F(ShmDestroy, GoesOnWithoutTheLock)
{
    withSegment(2);
    g_srvmod = 1;
    sim::skipSleeps(true);
    {
        const Holder held(shm.mutex.mutex);
        EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    }
    EXPECT_TRUE(trace->has(kFailure, "thmutex_lock Failure!!", "shmDestroy"));
    EXPECT_EQ(segments(), 0);
}

TEST_F(ShmDestroy, ALockThatCannotBeGivenBackIsOnlyTraced)
{
    withSegment(2);
    loseTheLock();
    EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    EXPECT_TRUE(trace->has(kFailure, "thmutex_unlock Failure!!", "shmDestroy"));
    EXPECT_EQ(segments(), 0);
}

using ShmNew = Segments;

TEST_F(ShmNew, OnlyClassesWithRecordsGetASegment)
{
    fillSample(instSt);
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        SCOPED_TRACE(id);
        EXPECT_EQ(shmSt[id].shmNum, instSt[id].datNum);
        EXPECT_EQ(shmSt[id].shmAdr, nullptr);
        if (instSt[id].datNum == 0) {
            EXPECT_EQ(shmSt[id].shmId, -1);
        } else {
            EXPECT_EQ(sizeOf(shmSt[id].shmId), instSt[id].datSize * static_cast<size_t>(instSt[id].datNum));
        }
    }
    EXPECT_EQ(segments(), 9);
    const std::vector<std::string> lines = linesOf("shmNew");
    ASSERT_EQ(lines.size(), 2U + 11 * 2 + 9);
    EXPECT_THAT(std::vector(lines.begin(), lines.begin() + 4),
                ElementsAre("0 _IN_", "0 0: shmAdr=[(nil)] shmNum=[0] instNum=[1]",
                            std::string("0 shmCreate(") + kBase + ",0,12)",
                            MatchesRegex("0 0: shmId=\\[[0-9]+\\],shmNum=\\[1\\],shmAdr=\\[\\(nil\\)\\]")));
    EXPECT_THAT(lines, Contains("0 6: shmId=[-1],shmNum=[0],shmAdr=[(nil)]"));
}

TEST_F(ShmNew, ASegmentOfTheSameCountThatWasUsedStays)
{
    twoRecords();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    ASSERT_EQ(setInstToShm(&cInfo, &ins, &shm), 0);
    const int id = shm.shmId;
    trace->clear();
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    EXPECT_EQ(shm.shmId, id);
    EXPECT_THAT(trace->textsOf("shmNew"), testing::Not(Contains(std::string("shmCreate(") + kBase + ",3,704)")));
}

TEST_F(ShmNew, UnusedSegmentOfTheSameCountIsReplaced)
{
    twoRecords();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    const int before = segments();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    EXPECT_EQ(segments(), before);
}

TEST_F(ShmNew, AnotherCountReplacesTheSegment)
{
    twoRecords();
    ASSERT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    fill<StrgScsiRec>(ins, {scsiRecord(1, "ONE")});
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    EXPECT_THAT(trace->textsOf("shmNew"), Contains("shmDestroy(3)"));
    EXPECT_EQ(sizeOf(shm.shmId), 352U);
    fill<StrgScsiRec>(ins, {});
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), 0);
    EXPECT_EQ(shm.shmId, -1);
    EXPECT_EQ(segments(), 2) << "configuration and totals";
}

TEST_F(ShmNew, ChecksItsArgumentsInOrder)
{
    EXPECT_EQ(shmNew(nullptr, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(shmNew(&cInfo, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(shmNew(&cInfo, 11, nullptr, nullptr, nullptr), -1) << "there are eleven entries";
    EXPECT_EQ(shmNew(&cInfo, 1, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(shmNew(&cInfo, 1, kBase, nullptr, nullptr), -1);
    EXPECT_EQ(shmNew(&cInfo, 1, kBase, instSt, nullptr), -1);
    EXPECT_THAT(linesOf("shmNew"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(max) Failure!!",
                            "0 _IN_", "3 _OUT_ param(max) Failure!!", "0 _IN_", "3 _OUT_ param(fnm) Failure!!",
                            "0 _IN_", "3 _OUT_ param(ins) Failure!!", "0 _IN_", "3 _OUT_ param(shm) Failure!!"));
}

TEST_F(ShmNew, AFailureLeavesNoSegmentBehind)
{
    fillSample(instSt);
    sim::failNth(sim::Call::segment, 2 * 5 + 1); // of two for each class, the first of the sixth
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), -1);
    EXPECT_THAT(linesOf("shmNew"), Contains(StartsWith("3 shmCreate(5) Failure!! errno=[")));
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ [TAV_FALSE]", "shmNew"));
    EXPECT_EQ(segments(), 0);
    for (const ShmInfo &entry : std::span(shmSt).first(5)) {
        EXPECT_EQ(entry.shmId, -1);
        EXPECT_EQ(entry.shmNum, 0);
    }
}

TEST_F(ShmNew, AnEntryThatCannotBeDestroyedFailsIt)
{
    twoRecords();
    setSegment(shm, {-1, 5, nullptr}, false);
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), -1);
    EXPECT_THAT(linesOf("shmNew"), Contains(StartsWith("3 shmDestroy(3) Failure!! errno=[")));
}

TEST_F(ShmNew, RecordsThatNoSegmentCanHoldFailIt)
{
    twoRecords();
    ins.datNum = INT_MAX;
    EXPECT_EQ(shmNew(&cInfo, 10, kBase, instSt, shmSt), -1);
    EXPECT_TRUE(trace->has(kFailure, "_OUT_ param(size) Failure!!", "shmCreate"));
    ins.datNum = 2;
}

using ReallocDatArea = Segments;

TEST_F(ReallocDatArea, GrowsAreaAndSegmentKeepingWhatWasThere)
{
    twoRecords();
    withSegment(2);
    const int before = shm.shmId;
    ins.datNum = 5;
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), 0);
    EXPECT_EQ(shm.shmNum, 5);
    EXPECT_EQ(sizeOf(shm.shmId), 5U * 352);
    EXPECT_EQ(sizeOf(before), 0U);
    const std::vector<StrgScsiRec> records = recordsIn<StrgScsiRec>(ins);
    EXPECT_STREQ(records[1].Model, "TWO");
    const StrgScsiRec zero = {};
    EXPECT_EQ(std::memcmp(&records[4], &zero, sizeof zero), 0) << "the added tail is zero";
    EXPECT_THAT(linesOf("reallocDatArea"), ElementsAre("0 _IN_", "0 cid=[3] insNum=[5] shmNum=[2]", "0 _OUT_ ret=[0]"));
}

TEST_F(ReallocDatArea, ShrinksAreaAndSegment)
{
    twoRecords();
    withSegment(2);
    ins.datNum = 1;
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), 0);
    EXPECT_EQ(sizeOf(shm.shmId), 352U);
    EXPECT_STREQ(recordsIn<StrgScsiRec>(ins)[0].Model, "ONE");
}

TEST_F(ReallocDatArea, TheFirstRecordsGetAZeroedAreaAndASegment)
{
    ins.datNum = 2;
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), 0);
    const StrgScsiRec zero = {};
    EXPECT_EQ(std::memcmp(&recordsIn<StrgScsiRec>(ins)[1], &zero, sizeof zero), 0);
    EXPECT_EQ(sizeOf(shm.shmId), 704U);
}

TEST_F(ReallocDatArea, WithNoRecordsLeftTheSegmentIsGoneAndTheAreaStays)
{
    twoRecords();
    withSegment(2);
    ins.datNum = 0;
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), 0);
    EXPECT_EQ(shm.shmId, -1);
    EXPECT_EQ(segments(), 0);
    EXPECT_NE(ins.datAdr, nullptr);
}

TEST_F(ReallocDatArea, ChecksItsArgumentsInOrder)
{
    EXPECT_EQ(reallocDatArea(nullptr, nullptr, -1, nullptr, nullptr), -1);
    EXPECT_EQ(reallocDatArea(&cInfo, nullptr, -1, nullptr, nullptr), -1);
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, -1, nullptr, nullptr), -1);
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, nullptr, nullptr), -1);
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, nullptr), -1);
    EXPECT_THAT(linesOf("reallocDatArea"),
                ElementsAre("0 _IN_", "3 _OUT_ param(cInfo) Failure!!", "0 _IN_", "3 _OUT_ param(shmKeyFnm) Failure!!",
                            "0 _IN_", "3 _OUT_ param(cid) Failure!!", "0 _IN_", "3 _OUT_ param(ins) Failure!!",
                            "0 _IN_", "3 _OUT_ param(shm) Failure!!"));
}

TEST_F(ReallocDatArea, EachStepThatFailsIsTraced)
{
    setSegment(shm, {-1, 2, nullptr}, false);
    ins.datNum = 1;
    EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), -1);
    EXPECT_THAT(linesOf("reallocDatArea"), Contains(StartsWith("3 _OUT_ shmDestroy() Failure!! errno=[")));

    setSegment(shm, {-1, 0, nullptr}, false);
    EXPECT_EQ(reallocDatArea(&cInfo, "/opt/qlm/tavkit_sa/nowhere/key", 3, &ins, &shm), -1);
    EXPECT_THAT(linesOf("reallocDatArea"), Contains(StartsWith("3 _OUT_ shmCreate() Failure!! errno=[")));
    ins.datNum = 0;
}

TEST_F(ReallocDatArea, WithoutMemoryTheWholeAreaIsLostAndSaysSo)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    for (const bool live : {false, true}) {
        if (live) {
            twoRecords();
        }
        ins.datNum = 3;
        trace->clear();
        sim::failNth(sim::Call::allocate, 1);
        EXPECT_EQ(reallocDatArea(&cInfo, kBase, 3, &ins, &shm), -1);
        sim::failNth(sim::Call::allocate, 0);
        EXPECT_TRUE(trace->has(kFailure, "_OUT_ memrealloc() Failure!!", "reallocDatArea"));
        EXPECT_EQ(ins.datNum, 0);
        EXPECT_EQ(ins.datAdr, nullptr);
    }
}

} // namespace
