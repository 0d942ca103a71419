// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/machine_follower.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using testing::StartsWith;
using tool::MachineFollower;

namespace fs = std::filesystem;

class Following : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "tavstrg_follow_XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory_ = pattern;
        path_ = (directory_ / "m.json").string();
        write("{}");
    }
    void TearDown() override { fs::remove_all(directory_); }

    void write(const std::string &text) const { std::ofstream(path_) << text; }

    fs::path directory_;
    std::string path_;
};

TEST_F(Following, NothingIsToldWhileNothingChanges)
{
    MachineFollower follower(path_);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(follower.look());
    }
}

TEST_F(Following, AChangeIsToldOnceWhenTheFileIsLeftAlone)
{
    MachineFollower follower(path_);
    write("{\"hosts\":");
    EXPECT_FALSE(follower.look()); // just changed
    write("{\"hosts\": []}");
    EXPECT_FALSE(follower.look()); // and again
    const auto change = follower.look();
    ASSERT_TRUE(change);
    EXPECT_EQ(change->text, "{\"hosts\": []}");
    EXPECT_EQ(change->problem, "");
    EXPECT_FALSE(follower.look());
}

TEST_F(Following, AFileInItsPlaceIsAChange)
{
    MachineFollower follower(path_);
    const fs::path other = directory_ / "other";
    std::ofstream(other) << "[]";
    fs::rename(other, path_);
    EXPECT_FALSE(follower.look());
    const auto change = follower.look();
    ASSERT_TRUE(change);
    EXPECT_EQ(change->text, "[]");
}

TEST_F(Following, ASlipAndALossAreToldOnceEachWithTheirReason)
{
    MachineFollower follower(path_);
    write("{\n  oops\n}");
    EXPECT_FALSE(follower.look());
    EXPECT_THAT(follower.look().value().problem, StartsWith(path_ + ":2:3: "));
    EXPECT_FALSE(follower.look());
    fs::remove(path_);
    EXPECT_FALSE(follower.look());
    EXPECT_EQ(follower.look().value().problem, path_ + ": No such file or directory");
    EXPECT_FALSE(follower.look());
    write("{\"hosts\": []}");
    EXPECT_FALSE(follower.look());
    EXPECT_EQ(follower.look().value().text, "{\"hosts\": []}");
}

TEST_F(Following, WhatIsNoRegularFileIsNotFollowed)
{
    const fs::path fifo = directory_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    MachineFollower follower(fifo.string());
    fs::remove(fifo);
    std::ofstream(fifo) << "{}";
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(follower.look());
    }
}

} // namespace
