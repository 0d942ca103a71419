// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/last_values.h"

#include "collect/devices/stored_values.h"
#include "runtime/field_text.h"

#include <gtest/gtest.h>
#include <memory>

using namespace tavstrg;

namespace {

DiskKey key(const char *identity, int id)
{
    DiskKey key = {};
    copyText(key.identity, identity);
    key.address = {0, 0, id, 0};
    return key;
}

DiskMemory memoryOf(uint64_t capacity)
{
    DiskMemory memory = {};
    memory.values.capacity = capacity;
    memory.valuesRead = true;
    return memory;
}

class LastValuesMemory : public testing::Test {
protected:
    // Capacity that is remembered; 0 for none.
    uint64_t recalled(const DiskKey &key)
    {
        DiskMemory memory = {};
        return table_->recall(key, memory) ? memory.values.capacity : 0;
    }

    std::unique_ptr<LastValuesTable> table_ = std::make_unique<LastValuesTable>();
};

TEST_F(LastValuesMemory, IsOfADiskAtItsAddress)
{
    table_->remember(key("A", 1), memoryOf(10));
    table_->remember(key("A", 2), memoryOf(20)); // another path to the same disk
    table_->remember(key("B", 1), memoryOf(30));
    table_->remember(key("", 3), memoryOf(40));
    EXPECT_EQ(recalled(key("A", 1)), 10U);
    EXPECT_EQ(recalled(key("A", 2)), 20U);
    EXPECT_EQ(recalled(key("B", 1)), 30U);
    EXPECT_EQ(recalled(key("", 3)), 40U);
    EXPECT_EQ(recalled(key("", 4)), 0U);
    table_->remember(key("A", 1), memoryOf(11));
    EXPECT_EQ(recalled(key("A", 1)), 11U);
}

TEST_F(LastValuesMemory, FollowsADiskThatMoved)
{
    table_->remember(key("A", 1), memoryOf(10));
    table_->remember(key("", 2), memoryOf(20));
    LastValues values = {};
    EXPECT_TRUE(table_->recallMoved(key("A", 7), values));
    EXPECT_EQ(values.capacity, 10U);
    EXPECT_FALSE(table_->recallMoved(key("B", 7), values));
    EXPECT_FALSE(table_->recallMoved(key("", 7), values)); // any disk could be that one
    DiskMemory unread = memoryOf(30);
    unread.valuesRead = false;
    table_->remember(key("C", 3), unread);
    EXPECT_FALSE(table_->recallMoved(key("C", 7), values));
}

TEST_F(LastValuesMemory, WhatIsForgottenIsGone)
{
    table_->remember(key("A", 1), memoryOf(10));
    table_->remember(key("B", 2), memoryOf(20));
    table_->forget(key("A", 1));
    table_->forget(key("C", 3));
    EXPECT_EQ(recalled(key("A", 1)), 0U);
    EXPECT_EQ(recalled(key("B", 2)), 20U);
    table_->clear();
    EXPECT_EQ(recalled(key("B", 2)), 0U);
}

TEST_F(LastValuesMemory, KeepsTheDisksThatAreThereWhenItIsFull)
{
    constexpr int kRoom = LastValuesTable::kDisks;
    for (int i = 0; i < kRoom; ++i) {
        table_->remember(key("", i), memoryOf(1));
    }
    table_->remember(key("", kRoom), memoryOf(2));
    EXPECT_EQ(recalled(key("", kRoom)), 0U); // no room
    for (int pass = 0; pass < 20; ++pass) {
        for (int i = 1; i < kRoom; ++i) { // the first one is gone
            EXPECT_EQ(recalled(key("", i)), 1U);
        }
    }
    table_->remember(key("", kRoom), memoryOf(2));
    EXPECT_EQ(recalled(key("", kRoom)), 2U);
    EXPECT_EQ(recalled(key("", 0)), 0U);
}

// ---- from the stored records ----

class StoredValues : public testing::Test {
protected:
    StoredValues()
    {
        add(1, 5, "MODEL A", "SERIAL-A", 100);
        add(2, 6, "MODEL B", "SERIAL-B", 200);
        devices_.back().DeviceType = 1; // no disk
        add(3, 7, "MODEL C", "SERIAL-C   and more", 300);
        add(4, 8, "MODEL D", "", 400);
        lives_.push_back({1, 13, 4, 0}); // of the third
    }

    void add(uint16_t index, uint16_t target, const char *model, const char *serial, uint32_t capacity)
    {
        StrgScsiRec device = {};
        device.Index = index;
        device.DeviceTypeIndex = static_cast<uint16_t>(10 + index);
        device.TargetID = target;
        copyText(device.Vendor, "ATA");
        copyText(device.Model, model);
        copyText(device.SerialNumber, serial);
        devices_.push_back(device);
        StrgHddRec disk = {};
        disk.InterfaceTypeIndex = index;
        disk.Capacity = capacity;
        disk.SmartStatus = 1;
        disks_.insert(disks_.begin(), disk); // in another order
    }
    // Capacity of the disk that is found; 0 for none.
    uint64_t found(int id, const char *model, const char *serial)
    {
        const auto values = findStored({devices_, disks_, lives_}, {{9, 0, id, 0}, "ATA", model, serial});
        EXPECT_TRUE(!values || (values->predict == 1 && values->smartAsked));
        return values ? values->capacity : 0;
    }

    std::vector<StrgScsiRec> devices_;
    std::vector<StrgHddRec> disks_;
    std::vector<StrgLifeRec> lives_;
};

TEST_F(StoredValues, AreFoundByModelAndSerialNumberAnywhere)
{
    EXPECT_EQ(found(0, "MODEL A", "SERIAL-A"), 100U);
    EXPECT_EQ(found(5, "MODEL C", "SERIAL-C"), 300U); // whatever followed it on the disk
    EXPECT_EQ(found(5, "MODEL B", "SERIAL-B"), 0U);   // no disk
    EXPECT_EQ(found(5, "MODEL A", "SERIAL-X"), 0U);
    EXPECT_EQ(found(5, "MODEL X", "SERIAL-A"), 0U);
}

TEST_F(StoredValues, ADiskWithoutASerialNumberIsFoundByItsPlaceAlone)
{
    EXPECT_EQ(found(8, "MODEL D", ""), 400U);
    EXPECT_EQ(found(7, "MODEL D", ""), 0U);
    EXPECT_EQ(found(8, "MODEL A", ""), 0U);
    add(9, 8, "MODEL D", "", 900); // on another host adapter
    EXPECT_EQ(found(8, "MODEL D", ""), 0U);
}

TEST_F(StoredValues, NothingIsFoundAmongNoRecords)
{
    EXPECT_FALSE(findStored({}, {{0, 0, 5, 0}, "ATA", "MODEL A", "SERIAL-A"}));
    EXPECT_FALSE(findStored({devices_, {}, {}}, {{0, 0, 5, 0}, "ATA", "MODEL A", "SERIAL-A"}));
}

TEST(StoredLevel, HasAFigureOfThatLevel)
{
    const M2SSDInf rated = {{}, 231, 100, 80, 60, 40, 20, 0};
    for (int16_t level = 1; level <= 5; ++level) {
        const auto figure = figureOfLevel(rated, level);
        ASSERT_TRUE(figure);
        EXPECT_EQ(enduranceLevel(rated, *figure), level);
    }
    for (const int16_t none : {int16_t{-1}, int16_t{0}, int16_t{6}, int16_t{32767}, int16_t{-32768}}) {
        EXPECT_FALSE(figureOfLevel(rated, none));
    }
    const M2SSDInf odd = {{}, 231, 100, 80, 80, 80, 80, 80};
    EXPECT_FALSE(figureOfLevel(odd, 1)); // that level has no figure
    const M2SSDInf negative = {{}, 231, 100, 80, 60, 40, 20, -5};
    EXPECT_EQ(figureOfLevel(negative, 1), uint16_t{0});
}

} // namespace
