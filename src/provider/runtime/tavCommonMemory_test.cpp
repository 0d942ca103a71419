#include "provider/runtime/tavCommonMemory.h"

#include "sim/sim.h"
#include "support/quiet_trace.h"
#include "support/trace_recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

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

TEST(Memalloc, TellsWhenMemoryIsShort)
{
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    QuietTrace last;
    sim::countCallsOf(ownName());
    sim::failNth(sim::Call::allocate, 1);
    void *const block = memalloc(100);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(last.text(), "_OUT_ adr is Null Failure!! errno=[" + std::to_string(ENOMEM) + "]");
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
    if (!sim::allocationsCanFail()) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
    QuietTrace last;
    sim::countCallsOf(ownName());
    const int64_t before = sim::liveBlocks();
    void *const block = memalloc(16);
    sim::failNth(sim::Call::allocate, 1);
    void *const result = memrealloc(block, 32);
    sim::failNth(sim::Call::allocate, 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(sim::liveBlocks(), before);
    EXPECT_EQ(last.text(), "_OUT_ adr is Null Failure!! errno=[" + std::to_string(ENOMEM) + "]");
}

void freeTwice(char *&block)
{
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
