// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/machine_file.h"

#include "tavstrg/failure.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>

namespace {

using namespace tool;
using testing::StartsWith;

std::string problemOf(const std::string &text)
{
    try {
        checkJson(text, "m.json");
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "";
}

TEST(CheckJson, TellsLineAndColumnOfTheSlip)
{
    EXPECT_EQ(problemOf("{\n  \"a\": 1\n}\n"), "");
    EXPECT_THAT(problemOf("{\n  \"a\": oops\n}\n"), StartsWith("m.json:2:8: syntax error while parsing value"));
    EXPECT_THAT(problemOf("x"), StartsWith("m.json:1:1: "));
    EXPECT_THAT(problemOf("{\"a\": 1,\n\n}"), StartsWith("m.json:3:1: "));
    EXPECT_THAT(problemOf("{} {}"), StartsWith("m.json:1:4: "));
}

TEST(CheckJson, AnUnfinishedFileIsToldAtItsEnd)
{
    EXPECT_THAT(problemOf(""), StartsWith("m.json:1:1: "));
    EXPECT_THAT(problemOf("{\n  \"a\": [1,\n"), StartsWith("m.json:3:1: "));
}

TEST(ReadMachineFile, AFileThatIsNotThereIsNamedWithTheReason)
{
    try {
        readMachineFile("/nonexistent/m.json");
        FAIL() << "was read";
    } catch (const Failure &failure) {
        EXPECT_STREQ(failure.what(), "/nonexistent/m.json: No such file or directory");
    }
}

TEST(ReadMachineFile, ADirectoryIsNoFile)
{
    try {
        readMachineFile(testing::TempDir());
        FAIL() << "was read";
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.what(), testing::TempDir() + ": Is a directory");
    }
}

TEST(ReadMachineFile, GivesTheWholeText)
{
    const std::string path = testing::TempDir() + "tavstrg_machine_file_test.json";
    const std::string text = "{\"long\": \"" + std::string(10000, 'x') + "\"}";
    FILE *file = std::fopen(path.c_str(), "we");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    ASSERT_EQ(std::fclose(file), 0);
    EXPECT_EQ(readMachineFile(path), text);
    std::remove(path.c_str());
}

TEST(WithAgentLibraries, AddsThemAndKeepsTheRest)
{
    EXPECT_EQ(withAgentLibraries("{\"kernel\": \"6.1.0\"}"), "{\"kernel\":\"6.1.0\",\"agent\":{\"libraries\":true}}");
    EXPECT_EQ(withAgentLibraries("{\"agent\": {\"libraries\": false, \"libraryDirectory\": \"/x\"}}"),
              "{\"agent\":{\"libraries\":true,\"libraryDirectory\":\"/x\"}}");
}

TEST(WithAgentLibraries, LeavesAMistakeToWhoMakesTheMachine)
{
    for (const char *description : {"[1]", "{\"agent\": 7}"}) {
        EXPECT_EQ(withAgentLibraries(description), description);
    }
}

} // namespace
