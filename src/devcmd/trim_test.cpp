// SPDX-License-Identifier: Apache-2.0
#include "devcmd/trim.h"

#include "support/trace_recorder.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using namespace tavstrg;

namespace {

std::string trimmedBy(const std::string &text)
{
    const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
    memcpy(exact.get(), text.c_str(), text.size() + 1);
    del_space(exact.get());
    return exact.get();
}

TEST(DelSpace, TrimsBothEnds)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"a", "a"},
        {" a ", "a"},
        {" \n\t a b \t\r\n ", "a b"},
        {"a  b", "a  b"},
        {"   ", ""},
        {"\n", ""},
        {" \t\n\r\t ", ""},
        {"\r\n", ""},
        {"\r", ""},
        // a leading carriage return is kept, a trailing one is removed
        {"\ra", "\ra"},
        {" \r a", "\r a"},
        {"a\r", "a"},
        {"\ra\r", "\ra"},
        // other white space is kept
        {"\va\f", "\va\f"},
        {"\xC2\xA0 x \xFF", "\xC2\xA0 x \xFF"},
        {"\x03 S1AB2C3D400001  \x03", "\x03 S1AB2C3D400001  \x03"},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(trimmedBy(text), expected) << testing::PrintToString(text);
    }
}

TEST(DelSpace, HandlesAtMost256Characters)
{
    EXPECT_EQ(trimmedBy(std::string(256, 'x')), std::string(256, 'x'));
    EXPECT_EQ(trimmedBy(std::string(257, 'x')), std::string(256, 'x'));
    EXPECT_EQ(trimmedBy(std::string(5000, 'x')), std::string(256, 'x'));
    EXPECT_EQ(trimmedBy(" " + std::string(256, 'x')), std::string(255, 'x'));
    EXPECT_EQ(trimmedBy(std::string(255, 'x') + " y"), std::string(255, 'x'));
    EXPECT_EQ(trimmedBy(std::string(256, ' ') + "y"), "");
}

TEST(DelSpace, TracesEntryAndExit)
{
    TraceRecorder traces;
    trimmedBy(" a ");
    EXPECT_THAT(traces.textsOf("del_space"), testing::ElementsAre("_IN_", "_OUT_"));
    traces.clear();
    del_space(nullptr);
    EXPECT_TRUE(traces.has(3, "_OUT_ param(text) Failure!!", "del_space"));
}

} // namespace
