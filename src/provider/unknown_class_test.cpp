// SPDX-License-Identifier: Apache-2.0
// The class of every disk: without its line, a class that the provider does not know.
#include "disks/current/current.h"
#include "runtime/trace.h"
#include "support/entry_points.h"
#include "support/options_fixture.h"

#include <gmock/gmock.h>

using namespace tavstrg;

using broker::Reply;
using broker::Value;

namespace {

// What a class gets for every kind of request: answers and trace lines, without its name and addresses.
class UnknownClass : public EntryPoints {
protected:
    std::vector<std::string> all(const std::string &className)
    {
        trace.clear();
        const char *const name = className.c_str();
        std::vector<std::string> told;
        for (const Reply &reply : {get(name, {{"DiskID", Value::text("naa.5000c500a1b2c3d4")}}), enumerate(name),
                                   names(name), invoke(name, "Any")}) {
            told.push_back(std::to_string(reply.rc) + " " + reply.message + (reply.done ? " done" : "") + " " +
                           std::to_string(reply.instances.size()));
        }
        for (const char *function : {kGet, kEnum, kInvoke, "TAV_StorageProviderEnumInstanceNames", "strgInitProvider",
                                     "getServiceMode", "getThreadSts", "getClassName"}) {
            for (std::string line : trace.linesOf(function)) {
                if (const size_t at = line.find(className); at != std::string::npos) {
                    line.replace(at, className.size(), "CLASS");
                }
                if (const size_t at = line.find("0x"); at != std::string::npos) {
                    line.resize(at);
                }
                told.push_back(line);
            }
        }
        return told;
    }
};

TEST_F(UnknownClass, IsTheClassOfEveryDiskWithoutItsLine)
{
    const std::vector<std::string> expected = all("TAV_StorageNothing");
    EXPECT_EQ(expected[0], "1 Generic Failure!! 0");
    EXPECT_EQ(expected[2], "7 NOT_SUPPORTED 0");
    EXPECT_GT(expected.size(), 10U);
    EXPECT_EQ(all("TAV_StorageDisk"), expected);
    machine.write(OptionsInForce::kFile, "clean-text\n# every-disk\n");
    EXPECT_EQ(all("TAV_StorageDisk"), expected);
    noThread();
    EXPECT_EQ(all("TAV_StorageDisk"), all("TAV_StorageNothing"));
}

TEST_F(UnknownClass, IsNotTheClassOfEveryDiskWithItsLine)
{
    for (const char *line : {"every-disk\n", "all\n"}) {
        machine.write(OptionsInForce::kFile, line);
        trace.clear();
        EXPECT_EQ(enumerate("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_TRUE(trace.has(kFailure, "->TAV_STRGDiskEnumInstances()", kEnum));
        EXPECT_EQ(names("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(names("TAV_StorageHardDisk").message, "NOT_SUPPORTED");
        EXPECT_EQ(get("TAV_StorageDisk").message, "getKeyText() FAILED");
        EXPECT_EQ(get("TAV_StorageDisk", {{"DiskID", Value::number(1)}}).message, "getKeyText() FAILED");
        EXPECT_EQ(invoke("TAV_StorageDisk", "Any").message, "Generic Failure!!");
        disks::forgetCurrentDisks();
    }
    machine.remove(OptionsInForce::kFile);
    EXPECT_EQ(enumerate("TAV_StorageDisk").message, "Generic Failure!!");
}

TEST_F(UnknownClass, NeedsNoInventoryWithItsLine)
{
    machine.write(OptionsInForce::kFile, "every-disk\n");
    for (const int state : {0, 1}) { // no store was built; another thread has been building one for too long
        gst_first = state;
        EXPECT_EQ(enumerate("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(names("TAV_StorageDisk").message, "NotFound Data");
        EXPECT_EQ(invoke("TAV_StorageDisk", "Any").message, "Generic Failure!!");
        EXPECT_EQ(gst_first, state);
    }
    EXPECT_EQ(get("TAV_StorageThread").message, "strgInitProvider() Failure!!");
    noThread();
    EXPECT_EQ(enumerate("TAV_StorageDisk").message, "ServiceMode But NonThread Failure!!");
    gst_first = 2;
    disks::forgetCurrentDisks();
}

} // namespace
