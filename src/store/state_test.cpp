// SPDX-License-Identifier: Apache-2.0
#include "support/store_fixture.h"

using namespace tavstrg;

namespace {

class StoreState : public testing::Test {
protected:
    StoreState()
    {
        resetStore();
        fillSample(instSt);
        gst_first = kBuilt;
    }
    ~StoreState() override { resetStore(); }
};

TEST_F(StoreState, ConfigurationSteersCycleAndSmartMode)
{
    changeRecords<StrgConfRec>(instSt[TAV_CID_STRG_CONF], [](StrgConfRec &conf) {
        conf.MonitorCycle = 3600;
        conf.HardDiskSmartMode = -1;
    });
    EXPECT_TRUE(strgTakeConfig());
    EXPECT_EQ(gst_SleepSec, 3600);
    EXPECT_EQ(gst_SmartMode, -1) << "sign-extended";
}

TEST_F(StoreState, WithoutConfigurationNothingIsTaken)
{
    std::free(takeRecords(instSt[TAV_CID_STRG_CONF]));
    gst_SleepSec = 77;
    EXPECT_FALSE(strgTakeConfig());
    EXPECT_EQ(gst_SleepSec, 77);
}

TEST_F(StoreState, TotalsAreTheCountsOfTheClassesInOrder)
{
    changeRecords<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], [](StrgTnumRec &totals) { totals = {}; });
    EXPECT_TRUE(strgTakeTotals());
    const StrgTnumRec totals = recordsIn<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM])[0];
    const StrgTnumRec expected = {1, 2, 1, 3, 0, 1, 0, 1, 2, 0};
    EXPECT_EQ(std::memcmp(&totals, &expected, sizeof totals), 0);
}

TEST_F(StoreState, MoreThan65535RecordsKeepTheLowSixteenBitsOfTheCount)
{
    fill<StrgDevRec>(instSt[TAV_CID_STRG_MISC], std::vector<StrgDevRec>(65536 + 3));
    ASSERT_TRUE(strgTakeTotals());
    EXPECT_EQ(recordsIn<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM])[0].MiscTotalNumber, 3);
}

TEST_F(StoreState, WithoutTotalsRecordNothingIsCounted)
{
    std::free(takeRecords(instSt[TAV_CID_STRG_TNUM]));
    EXPECT_FALSE(strgTakeTotals());
}

TEST_F(StoreState, ReaderBringsTheDescriptorUpToWhatTheStoreHas)
{
    DatInfo handedOut = recordsNow(instSt[TAV_CID_STRG_HDD]);
    fill<StrgHddRec>(instSt[TAV_CID_STRG_HDD], {{7, 0, 1, 0, "", 0, 0, 0, 0, 0, 0}});
    const RecordsReader reader(TAV_CID_STRG_HDD, handedOut);
    ASSERT_EQ(handedOut.datNum, 1);
    EXPECT_EQ(static_cast<StrgHddRec *>(handedOut.datAdr)->Index, 7);
}

TEST_F(StoreState, NothingWalksRecordsOfADescriptorWithoutArray)
{
    DatInfo &dat = instSt[TAV_CID_STRG_HDD];
    std::free(takeRecords(dat));
    uint8_t record[kMaxRecordSize];
    EXPECT_FALSE(copyRecord(dat, 0, record));
    dat.datNum = 3; // a count whose array is gone
    EXPECT_FALSE(copyRecord(dat, 0, record));
    EXPECT_FALSE(overwriteRecord(dat, 0, std::span(record).first(dat.datSize)));
    EXPECT_FALSE(overwriteRecords(dat, 3, record));
    EXPECT_FALSE(changeRecords<StrgHddRec>(dat, [](StrgHddRec &) { FAIL(); }));
    dat.datNum = 0;
}

TEST_F(StoreState, RecordsOutsideTheArrayAreNotThere)
{
    uint8_t record[kMaxRecordSize];
    EXPECT_TRUE(copyRecord(instSt[TAV_CID_STRG_HDD], 2, record));
    EXPECT_FALSE(copyRecord(instSt[TAV_CID_STRG_HDD], 3, record));
    EXPECT_FALSE(copyRecord(instSt[TAV_CID_STRG_HDD], -1, record));
    EXPECT_FALSE(copyRecord(instSt[TAV_CID_STRG_HDD], 0, std::span(record).first(283))) << "no room for a whole one";
    EXPECT_FALSE(overwriteRecord(instSt[TAV_CID_STRG_HDD], 3, std::span(record).first(284)));
    EXPECT_FALSE(overwriteRecords(instSt[TAV_CID_STRG_HDD], 2, record)) << "another count";
}

} // namespace
