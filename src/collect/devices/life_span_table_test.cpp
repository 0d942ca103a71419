// SPDX-License-Identifier: Apache-2.0
// Life-span entries: from the table file and the drives' attributes to the records.
#include "collect/devices/life_span_table.h"

#include "support/short_memory.h"
#include "support/snapshot_fixture.h"
#include "support/trace_watch.h"

#include <memory>
#include <optional>

using namespace tavstrg;

namespace {

class LifeSpan : public testing::Test {
protected:
    // A machine with these managed disks and this endurance table.
    void prepare(const std::string &disks, const std::string &table)
    {
        collected_.reset(); // one at a time
        collected_.emplace();
        table_.reset();
        machine_.reset();
        machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"driver": "ahci", "devices": [)" + disks +
                                                  R"(]}], "files": {"storage.inf": "ahci\n"}})");
        table_ = std::make_unique<EnduranceTable>(*machine_, table);
        trace_.clear();
    }
    static std::string ssd(int id, const std::string &model, const std::string &attributes,
                           const std::string &more = "")
    {
        return R"({"ata": true, "id": )" + std::to_string(id) + R"(, "model": ")" + model +
               R"(", "smart": {"attributes": [)" + attributes + "]}" + more + "}";
    }
    static SCSIDeviceEntry disk(const char *model, uint16_t index = 7)
    {
        SCSIDeviceEntry entry = {};
        copyText(entry.model, model);
        entry.DeviceTypeIndex = index;
        return entry;
    }

    TraceRecorder trace_;
    std::unique_ptr<sim::Machine> machine_;
    std::unique_ptr<EnduranceTable> table_;
    std::optional<Collection> collected_{std::in_place};
};

const std::string kTens = "MODELNAME0123456,231,100,80,60,40,20,0\n";

TEST_F(LifeSpan, EachCoveredDriveGetsOneRecord)
{
    prepare(ssd(0, "OTHER", R"({"id": 231, "current": 50})") + "," +
                ssd(1, "MODELNAME0123456", R"({"id": 9}, {"id": 231, "current": 79})") + "," +
                ssd(2, "MODELNAME0123456 512GB", R"({"id": 231, "current": 20})") + "," +
                ssd(3, "WEAR 230", R"({"id": 230, "raw": [9, 40]})"),
            kTens + "WEAR 230,230,100,80,60,40,20,0\n");
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    ASSERT_EQ(now.count(TAV_CID_STRG_LIFE), 3);
    const struct {
        int hdd;
        int level;
    } expected[] = {{2, 4}, {3, 2}, {4, 4}};
    for (int i = 0; i < 3; ++i) {
        const auto &record = now.at<StrgLifeRec>(TAV_CID_STRG_LIFE, i);
        EXPECT_EQ(record.Index, i + 1);
        EXPECT_EQ(record.HDDIndex, expected[i].hdd) << i;
        EXPECT_EQ(record.EnduranceRemaining, expected[i].level) << i;
    }
    EXPECT_EQ(g_M2SSDEndu, 60); // of the last
    EXPECT_TRUE(trace_.has(kDetail, "pScsi.Model[OTHER]", "GetLifeSpanInfo"));
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ Model:OTHER is not exist!!", "GetLifeSpanInfo"));
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ LifeSpan->Index=[1] HDDIndex=[2] EnduranceRemaining=[4] endurance=[79]",
                           "GetLifeSpanInfo"));
    EXPECT_EQ(collection().pLifeSpanTbl, nullptr);
    EXPECT_EQ(collection().pLifeSpanTblOld, nullptr);
}

TEST_F(LifeSpan, HddIndexCountsDisksAlone)
{
    prepare(R"({"type": 5, "id": 9},)" + ssd(10, "MODELNAME0123456", R"({"id": 231, "current": 100})"), kTens);
    ASSERT_EQ(DllMain(), 0);
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    EXPECT_EQ(collection().pSCSIDevTbl[1].Index, 2);
    EXPECT_EQ(collection().pLifeSpanTbl[0].HDDIndex, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, 5);
}

TEST_F(LifeSpan, ADriveWithoutTheAttributeHasLevelMinus1)
{
    prepare(ssd(0, "MODELNAME0123456", R"({"id": 9, "current": 50})"), kTens);
    ASSERT_EQ(DllMain(), 0);
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, -1);
    EXPECT_EQ(g_M2SSDEndu, 65535);
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ LifeSpan->Index=[1] HDDIndex=[1] EnduranceRemaining=[-1] endurance=[65535]",
                           "GetLifeSpanInfo"));
}

TEST_F(LifeSpan, ADriveWhoseCommandFailsHasARecordWithLevelMinus1)
{
    prepare(ssd(0, "MODELNAME0123456", R"({"id": 231, "current": 50})",
                R"(, "faults": [{"on": "smartData", "errno": "EIO"}])"),
            kTens);
    g_M2SSDEndu = 77;
    ASSERT_EQ(DllMain(), 0);
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].Index, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].HDDIndex, 1);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, -1);
    EXPECT_EQ(g_M2SSDEndu, 77);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ GetLifeSpanInfoIoctl is Failure!!", "GetLifeSpanInfo"));
}

TEST_F(LifeSpan, TheAttributeIsTheLowEightBitsOfTheTables)
{
    prepare(ssd(0, "MODELNAME0123456", R"({"id": 231, "current": 50})"), "MODELNAME0123456,487,100,80,60,40,20,0\n");
    ASSERT_EQ(DllMain(), 0);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, 3); // 487 is 256 + 231
    prepare(ssd(0, "MODELNAME0123456", R"({"id": 231, "current": 50})"), "MODELNAME0123456,256,100,80,60,40,20,0\n");
    ASSERT_EQ(DllMain(), 0);
    EXPECT_EQ(collection().pLifeSpanTbl[0].EnduranceRemaining, -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param(attID) Failure!!", "GetLifeSpanInfoIoctl"));
}

TEST_F(LifeSpan, WithoutATableNoDriveIsAsked)
{
    prepare(ssd(0, "MODELNAME0123456", R"({"id": 231, "current": 50})"), "");
    ASSERT_EQ(DllMain(), 0);
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 0);
    EXPECT_TRUE(trace_.textsOf("GetLifeSpanInfoIoctl").empty());
}

TEST_F(LifeSpan, ChecksItsArguments)
{
    const SCSIDeviceEntry entry = disk("M");
    GetLifeSpanInfo(nullptr, &entry);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param(devName) Failure!!", "GetLifeSpanInfo"));
    GetLifeSpanInfo("/dev/sda", nullptr);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param(scsiEntry) Failure!!", "GetLifeSpanInfo"));
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 0);
}

TEST_F(LifeSpan, TheTableGrowsByOneAndKeepsWhatItHas)
{
    prepare("", kTens);
    for (uint16_t i = 1; i <= 5; ++i) {
        const SCSIDeviceEntry entry = disk("MODELNAME0123456", static_cast<uint16_t>(100 + i));
        GetLifeSpanInfo("/dev/none", &entry);
    }
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 5);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(collection().pLifeSpanTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pLifeSpanTbl[i].HDDIndex, 101 + i);
        EXPECT_EQ(collection().pLifeSpanTbl[i].EnduranceRemaining, -1);
        EXPECT_EQ(collection().pLifeSpanTbl[i].reserved, 0);
    }
}

TEST_F(LifeSpan, WithoutMemoryAllEntriesAreGivenUp)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    prepare("", kTens);
    const SCSIDeviceEntry entry = disk("MODELNAME0123456");
    GetLifeSpanInfo("/dev/none", &entry);
    ASSERT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
    int seen = 0;
    {
        const TraceWatch watch(kFailure, "_OUT_ pLifeSpanTbl alloc Failure!!");
        const ShortMemory memory(1);
        GetLifeSpanInfo("/dev/none", &entry);
        seen = watch.seen();
    }
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 0);
    EXPECT_EQ(collection().pLifeSpanTbl, nullptr);
    EXPECT_EQ(collection().pLifeSpanTblOld, nullptr);
    GetLifeSpanInfo("/dev/none", &entry); // the next starts afresh
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 1);
}

TEST_F(LifeSpan, RecordsThatCannotBeAllocatedFailTheCollection)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    prepare(ssd(0, "MODELNAME0123456", "") + "," + ssd(1, "MODELNAME0123456", ""), kTens);
    Snapshot now;
    sim::countCallsOf("");
    g_Func.trace.TraceLog = nullptr; // the recorder allocates
    sim::resetCounts();
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    const unsigned all = sim::callsMade(sim::Call::allocate); // the life-span records are the last
    now.release();
    int result = 0;
    int seen = 0;
    {
        const TraceWatch watch(kFailure, "Strg_Life alloc Failure!!(8*2)");
        const ShortMemory memory(all);
        result = strgGetCurrentInfo(0, now.dat);
        seen = watch.seen();
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(now.dat[TAV_CID_STRG_LIFE].datAdr, nullptr);
    EXPECT_NE(now.dat[TAV_CID_STRG_HDD].datAdr, nullptr);
    EXPECT_EQ(collection().pLifeSpanTbl, nullptr);
}

} // namespace
