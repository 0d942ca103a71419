// SPDX-License-Identifier: Apache-2.0
#include "collect/inf/noscsi_inf.h"

#include "support/lists_fixture.h"

using namespace tavstrg;

namespace {

class NoManage : public testing::Test {
protected:
    ~NoManage() override { DestroyNoManageSCSIInfoTable(&list_); }
    TraceRecorder trace_;
    NoSCSIInfo *list_ = nullptr;
};

TEST_F(NoManage, AnEntryWithoutModelTakesEveryModelOfItsVendor)
{
    addUnmanaged(list_, "ACME", "");
    EXPECT_EQ(TAVStorageNoManage(list_, "ACME", "anything"), 1);
    EXPECT_TRUE(trace_.has(kDetail, "break tbl->vendor=[ACME]", "TAVStorageNoManage"));
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ vendor=[ACME] model=[anything] return 1.(not watched)"));
}

TEST_F(NoManage, AVendorMatchesOnlyWholeAndInItsCase)
{
    addUnmanaged(list_, "ACME", "");
    for (const char *const vendor : {"ACME    ", "acme", "ACM", "ACMEX", ""}) {
        EXPECT_EQ(TAVStorageNoManage(list_, vendor, "M"), 0) << vendor;
    }
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ vendor=[acme] model=[M] return 0.(watched)", "TAVStorageNoManage"));
}

TEST_F(NoManage, AnEntryWithoutVendorTakesEveryModelThatBeginsWithIts)
{
    addUnmanaged(list_, "", "DISK1");
    EXPECT_EQ(TAVStorageNoManage(list_, "any", "DISK1"), 1);
    EXPECT_EQ(TAVStorageNoManage(list_, "other", "DISK100  "), 1);
    EXPECT_EQ(TAVStorageNoManage(list_, "", "DISK"), 0);
    EXPECT_EQ(TAVStorageNoManage(list_, "", "ADISK1"), 0);
    EXPECT_TRUE(trace_.has(kDetail, "break tbl->model=[DISK1]", "TAVStorageNoManage"));
}

TEST_F(NoManage, AnEntryWithBothNeedsBoth)
{
    addUnmanaged(list_, "ACME", "DISK1");
    EXPECT_EQ(TAVStorageNoManage(list_, "ACME", "DISK100"), 1);
    EXPECT_EQ(TAVStorageNoManage(list_, "ACME", "DISK2"), 0);
    EXPECT_EQ(TAVStorageNoManage(list_, "OTHER", "DISK1"), 0);
    EXPECT_TRUE(trace_.has(kDetail, "break tbl->vendor=[ACME] tbl->model=[DISK1]", "TAVStorageNoManage"));
}

TEST_F(NoManage, TheFirstMatchFromTheHeadWins)
{
    addUnmanaged(list_, "ACME", "DISK1");
    addUnmanaged(list_, "ACME", ""); // at the head
    EXPECT_EQ(TAVStorageNoManage(list_, "ACME", "DISK1"), 1);
    EXPECT_TRUE(trace_.has(kDetail, "break tbl->vendor=[ACME]"));
    EXPECT_FALSE(trace_.has(kDetail, "break tbl->vendor=[ACME] tbl->model=[DISK1]"));
}

TEST_F(NoManage, ANullTextIsWatched)
{
    addUnmanaged(list_, "ACME", "");
    EXPECT_EQ(TAVStorageNoManage(list_, nullptr, "M"), 0);
    EXPECT_EQ(TAVStorageNoManage(list_, "ACME", nullptr), 0);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param error.", "TAVStorageNoManage"));
}

TEST_F(NoManage, NothingIsOnAnEmptyList)
{
    EXPECT_EQ(TAVStorageNoManage(nullptr, "ACME", "M"), 0);
}

TEST_F(NoManage, CreateChecksItsArguments)
{
    NoSCSIInfo *list = nullptr;
    int32_t status = 0;
    EXPECT_EQ(CreateNoSCSIInfoTable(&list, nullptr, nullptr), 0);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ iFlagParse is NULL.", "CreateNoSCSIInfoTable"));
    EXPECT_EQ(CreateNoSCSIInfoTable(nullptr, nullptr, &status), 0);
    EXPECT_EQ(status, -3);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ both pNoSCSI_Tbl and pNoDiagnoTbl is NULL."));
}

TEST_F(NoManage, DestroyFreesEveryNode)
{
    addUnmanaged(list_, "A", "");
    addUnmanaged(list_, "B", "");
    DestroyNoManageSCSIInfoTable(&list_);
    EXPECT_EQ(list_, nullptr);
    DestroyNoManageSCSIInfoTable(nullptr);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param(list) Failure!!", "DestroyNoManageSCSIInfoTable"));
}

} // namespace
