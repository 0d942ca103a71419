// SPDX-License-Identifier: Apache-2.0
#include "collect/base/sorted_index.h"

#include "support/short_memory.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace tavstrg;

namespace {

void fill(SortedIndex<int32_t> &index, const std::vector<int32_t> &keys)
{
    ASSERT_TRUE(index.reserve(static_cast<int32_t>(keys.size())));
    for (const int32_t key : keys) {
        index.add(key);
    }
    index.sort(std::less<>());
}

TEST(SortedIndex, OfSeveralEntriesWithOneKeyTheFirstIsFound)
{
    SortedIndex<int32_t> index;
    fill(index, {7, -3, 7, 0, -3, 7});
    EXPECT_EQ(index.find(7, std::less<>()), 0);
    EXPECT_EQ(index.find(-3, std::less<>()), 1);
    EXPECT_EQ(index.find(0, std::less<>()), 3);
}

TEST(SortedIndex, AnAbsentKeyIsNotFound)
{
    SortedIndex<int32_t> index;
    EXPECT_EQ(index.find(0, std::less<>()), -1); // not built
    fill(index, {});
    EXPECT_EQ(index.find(0, std::less<>()), -1);
    fill(index, {1, 3});
    for (const int32_t key : {0, 2, 4}) {
        EXPECT_EQ(index.find(key, std::less<>()), -1) << key;
    }
}

TEST(SortedIndex, FindsEachOfManyKeys)
{
    constexpr int32_t kMany = 10007; // prime: the multiples of 7 below run through all residues
    std::vector<int32_t> keys;
    for (int32_t i = 0; i < kMany; ++i) {
        keys.push_back(i * 7 % kMany);
    }
    SortedIndex<int32_t> index;
    fill(index, keys);
    for (int32_t i = 0; i < kMany; ++i) {
        ASSERT_EQ(index.find(keys[static_cast<size_t>(i)], std::less<>()), i);
    }
}

TEST(SortedIndex, WithoutMemoryThereIsNoRoom)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    SortedIndex<int32_t> index;
    bool room = true;
    {
        const ShortMemory memory(1);
        room = index.reserve(5);
    }
    EXPECT_FALSE(room);
    EXPECT_EQ(index.find(0, std::less<>()), -1);
}

} // namespace
