// SPDX-License-Identifier: Apache-2.0
#include "runtime/memory.h"

#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gmock/gmock.h>

using namespace tavstrg;

using testing::ElementsAre;

namespace {

const std::string kShort = "_OUT_ adr is Null Failure!! errno=[" + std::to_string(ENOMEM) + "]";

std::string formatted(const char *format, const void *pointer)
{
    char text[64];
    std::snprintf(text, sizeof text, format, pointer);
    return text;
}

TEST(Memalloc, GivesZeroFilledMemory)
{
    TraceRecorder trace;
    char *block = static_cast<char *>(memalloc(4096));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 4096, [](char c) { return c == 0; }));
    EXPECT_THAT(trace.textsOf("memalloc"), ElementsAre("_IN_ size=[4096]", formatted("_OUT_ adr=[%p]", block)));
    memfree(block);
}

TEST(Memalloc, RefusesZeroAndNegativeSizes)
{
    for (const int32_t size : {0, -5}) {
        TraceRecorder trace;
        EXPECT_EQ(memalloc(size), nullptr);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(size=" + std::to_string(size) + ") Failure!!", "memalloc"));
    }
}

TEST(Memalloc, TracesShortMemory)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    const TraceWatch told(kFailure, kShort.c_str());
    void *block = nullptr;
    {
        const ShortMemory memory(1);
        block = memalloc(100);
    }
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(told.seen(), 1);
}

TEST(Memrealloc, KeepsTheContent)
{
    TraceRecorder trace;
    char *block = static_cast<char *>(memalloc(4));
    block[0] = 'a';
    const std::string entry = "_IN_ realloc size=[100000] ptr=[" + formatted("%p", block) + "]";
    block = static_cast<char *>(memrealloc(block, 100000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 'a');
    EXPECT_THAT(trace.textsOf("memrealloc"), ElementsAre(entry, formatted("_OUT_ adr=[%p]", block)));
    memfree(block);
}

TEST(Memrealloc, LeavesTheBlockValidWhenTheSizeIsNotPositive)
{
    char *block = static_cast<char *>(memalloc(4));
    block[0] = 'a';
    for (const int32_t size : {0, -1}) {
        TraceRecorder trace;
        EXPECT_EQ(memrealloc(block, size), nullptr);
        EXPECT_TRUE(trace.has(kFailure, "_OUT_ param(size) Failure!!", "memrealloc"));
        EXPECT_EQ(block[0], 'a');
    }
    memfree(block);
}

TEST(Memrealloc, FreesTheOldBlockWhenMemoryIsShort)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    const TraceWatch told(kFailure, kShort.c_str());
    sim::countCallsOf("");
    const int64_t before = sim::liveBlocks();
    void *result = memalloc(16);
    {
        const ShortMemory memory(1);
        result = memrealloc(result, 32);
    }
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(sim::liveBlocks(), before);
    EXPECT_EQ(told.seen(), 1);
}

void freeTwice(char *&block)
{
    const TraceScope scope;
    memfree(block);
    memfree(block);
}

TEST(Memfree, IsTracedInTheNameOfTheFunctionThatFreesAndLeavesNull)
{
    TraceRecorder trace;
    char *block = static_cast<char *>(memalloc(4));
    const std::string freed = formatted("memfree(%p)", block);
    freeTwice(block);
    EXPECT_EQ(block, nullptr);
    EXPECT_THAT(trace.textsOf("freeTwice"), ElementsAre(freed, "memfree already NULL"));
}

} // namespace
