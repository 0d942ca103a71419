// SPDX-License-Identifier: Apache-2.0
#include "collect/base/flat_table.h"

#include "support/trace_recorder.h"

#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

struct Pair {
    int32_t a;
    int32_t b;
};

TEST(AllocateTable, NoEntriesNeedNoMemory)
{
    Pair some = {};
    Pair *table = &some;
    EXPECT_EQ(allocateTable(table, 0), 0);
    EXPECT_EQ(table, nullptr);
}

TEST(AllocateTable, IsZeroed)
{
    Pair *table = nullptr;
    ASSERT_EQ(allocateTable(table, 3), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(table[i].a, 0);
        EXPECT_EQ(table[i].b, 0);
    }
    memfree(table);
}

TEST(AllocateTable, RefusesASizeThatNoBlockHas)
{
    Pair *table = nullptr;
    EXPECT_EQ(allocateTable(table, -1), -1);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(allocateTable(table, INT32_MAX), -1);
    EXPECT_EQ(table, nullptr);
}

TEST(AppendEntry, NeverWritesPastTheEnd)
{
    Pair table[3] = {};
    int32_t count = 0;
    EXPECT_TRUE(appendEntry(table, 2, count, {1, 2}));
    EXPECT_TRUE(appendEntry(table, 2, count, {3, 4}));
    EXPECT_FALSE(appendEntry(table, 2, count, {5, 6}));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(table[1].b, 4);
    EXPECT_EQ(table[2].a, 0);
}

TEST(AppendEntry, ATableThatWasNotAllocatedIsFull)
{
    Pair *table = nullptr;
    int32_t count = 0;
    EXPECT_FALSE(appendEntry(table, 5, count, {1, 2}));
    EXPECT_EQ(count, 0);
}

TEST(GrowAndAppend, GrowsFromNothingAndKeepsWhatIsThere)
{
    Pair *table = nullptr;
    int32_t capacity = 0;
    int32_t count = 0;
    for (int32_t i = 0; i < 1000; ++i) {
        ASSERT_TRUE(growAndAppend(table, capacity, count, {i, -i}));
    }
    EXPECT_EQ(count, 1000);
    EXPECT_GE(capacity, 1000);
    EXPECT_LE(capacity, 2000);
    for (int32_t i = 0; i < 1000; ++i) {
        EXPECT_EQ(table[i].a, i);
        EXPECT_EQ(table[i].b, -i);
    }
    memfree(table);
}

TEST(ListHolder, ReleasesInTheNameOfItsHolder)
{
    const TraceRecorder trace;
    const TraceScope scope("Holder");
    ListHolder<Pair> list;
    list.entries = static_cast<Pair *>(memalloc(sizeof(Pair)));
    list.count = 1;
    list.release();
    EXPECT_EQ(list.entries, nullptr);
    EXPECT_EQ(list.count, 0);
    ASSERT_EQ(trace.textsOf("Holder").size(), 1U);
    EXPECT_TRUE(trace.textsOf("Holder")[0].starts_with("memfree(0x"));
}

} // namespace
