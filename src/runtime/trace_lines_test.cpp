// SPDX-License-Identifier: Apache-2.0
#include "runtime/trace_lines.h"

#include "runtime/trace.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace tavstrg;

namespace {

class KeptLines : public testing::Test {
protected:
    ~KeptLines() override { lines_.release(); }

    TraceRecorder trace_;
    TraceLines lines_ = {};
};

TEST_F(KeptLines, AreWrittenInTheirOrderUnderTheirNamesAndLevels)
{
    {
        const TraceInto into(lines_);
        const TraceScope outer("outerFunction");
        TRACE(kDetail, "_IN_ [%s]", "a");
        {
            const TraceScope inner("innerFunction");
            TRACE(kFailure, "failed %d", 7);
        }
        TRACE(kDetail, "_OUT_");
    }
    EXPECT_TRUE(trace_.records().empty());
    lines_.write();
    EXPECT_EQ(trace_.linesOf("outerFunction"), (std::vector<std::string>{"0 _IN_ [a]", "0 _OUT_"}));
    EXPECT_EQ(trace_.linesOf("innerFunction"), (std::vector<std::string>{"3 failed 7"}));
    EXPECT_EQ(trace_.texts(), (std::vector<std::string>{"_IN_ [a]", "failed 7", "_OUT_"}));
}

TEST_F(KeptLines, AreThoseOfTheirThreadAlone)
{
    const TraceInto into(lines_);
    std::thread([] { TRACE(kDetail, "of the other thread"); }).join();
    TRACE(kDetail, "of this thread");
    EXPECT_EQ(trace_.texts(), std::vector<std::string>{"of the other thread"});
}

TEST_F(KeptLines, EndWithTheScope)
{
    TraceLines inner = {};
    {
        const TraceInto into(lines_);
        {
            const TraceInto innermost(inner);
            TRACE(kDetail, "inner");
        }
        TRACE(kDetail, "outer");
    }
    TRACE(kDetail, "written");
    EXPECT_EQ(trace_.texts(), std::vector<std::string>{"written"});
    lines_.write();
    inner.write();
    EXPECT_EQ(trace_.texts(), (std::vector<std::string>{"written", "outer", "inner"}));
    inner.release();
}

TEST_F(KeptLines, HaveTheTextsOfTheirTime)
{
    std::string text = "before";
    {
        const TraceInto into(lines_);
        TRACE(kDetail, "%s", text.c_str());
    }
    text = "behind";
    lines_.write();
    EXPECT_EQ(trace_.texts(), std::vector<std::string>{"before"});
}

TEST_F(KeptLines, OfTooManyCharactersAreCut)
{
    {
        const TraceInto into(lines_);
        TRACE(kDetail, "%s", std::string(5000, 'x').c_str());
    }
    lines_.write();
    EXPECT_EQ(trace_.texts(), std::vector<std::string>{std::string(1023, 'x')});
}

TEST_F(KeptLines, CanBeWrittenWhileTheirThreadAddsMore)
{
    constexpr int kLines = 2000;
    std::thread adding([this] {
        const TraceInto into(lines_);
        for (int i = 0; i < kLines; ++i) {
            TRACE(kDetail, "%d", i);
        }
    });
    for (int i = 0; i < 20; ++i) {
        lines_.write();
    }
    adding.join();
    trace_.clear();
    lines_.write();
    const std::vector<std::string> texts = trace_.texts();
    ASSERT_EQ(texts.size(), size_t{kLines});
    EXPECT_EQ(texts.front(), "0");
    EXPECT_EQ(texts.back(), std::to_string(kLines - 1));
}

TEST_F(KeptLines, ThatAreReleasedAreGone)
{
    {
        const TraceInto into(lines_);
        TRACE(kDetail, "gone");
    }
    lines_.release();
    lines_.write();
    EXPECT_TRUE(trace_.records().empty());
}

} // namespace
