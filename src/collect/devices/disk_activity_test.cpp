// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_activity.h"

#include "support/inventory_fixture.h"

#include <cstring>

using inventory::disk;
using inventory::host;
using inventory::machine;

namespace {

TEST(IoCounts, AreThoseOfTheRequestsThatCompleted)
{
    const IoCounts now{.reads = 1, .writes = 5, .discards = 12, .flushes = 16};
    EXPECT_EQ(parseIoCounts("    1  2  3  4   5  6  7  8  9  10  11  12  13  14  15  16  17\n"), now);
    const IoCounts older{.reads = 1, .writes = 5, .discards = 12, .flushes = 0};
    EXPECT_EQ(parseIoCounts("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n"), older);
    const IoCounts oldest{.reads = 1, .writes = 5, .discards = 0, .flushes = 0};
    EXPECT_EQ(parseIoCounts("1 2 3 4 5 6 7 8 9 10 11\n"), oldest);
    EXPECT_EQ(parseIoCounts("1 2 3 4 5 6 7 8 9 10 11"), oldest);
}

TEST(IoCounts, AnotherTextHasNone)
{
    for (const char *const text : {"", "\n", "1 2 3 4 5 6 7 8 9 10", "1 2 3 4 x 6 7 8 9 10 11",
                                   "-1 2 3 4 5 6 7 8 9 10 11", "99999999999999999999 2 3 4 5 6 7 8 9 10 11"}) {
        EXPECT_FALSE(parseIoCounts(text)) << text;
    }
    EXPECT_FALSE(parseIoCounts(std::string_view("1 2 3 4 5 6 7 8 9 10\0 11", 23)));
}

TEST(RuntimeStatus, SuspendedAndSuspendingAreRest)
{
    for (const char *const text : {"suspended\n", "suspending\n", "suspended"}) {
        EXPECT_TRUE(isSuspendedStatus(text)) << text;
    }
    for (const char *const text :
         {"active\n", "resuming\n", "error\n", "unsupported\n", "", "suspended?\n", " suspended"}) {
        EXPECT_FALSE(isSuspendedStatus(text)) << text;
    }
}

class KernelActivity : public Inventory {
protected:
    std::string identity()
    {
        char text[kIdentitySize];
        readKernelIdentity({0, 0, 0, 0}, text);
        return text;
    }
};

TEST_F(KernelActivity, ADiskIsToldByItsWwidElseItsSerialNumber)
{
    json one = disk(0, "SERIAL-1");
    one["wwid"] = "naa.5000c500a1b2c3d4";
    boot(machine({host(0, "ahci", {one})}));
    EXPECT_EQ(identity(), "naa.5000c500a1b2c3d4");
    one["wwid"] = nullptr;
    boot(machine({host(0, "ahci", {one})}));
    EXPECT_EQ(identity(), "SERIAL-1");
    one["vpdPages"] = {{"80", nullptr}};
    boot(machine({host(0, "ahci", {one})}));
    EXPECT_EQ(identity(), "");
}

TEST_F(KernelActivity, IsReadWithoutOpeningTheNode)
{
    json one = disk(0, "SERIAL-1");
    one["io"] = {{"reads", 3}, {"writes", 4}};
    one["power"] = {{"runtimeStatus", "suspended"}};
    boot(machine({host(0, "ahci", {one})}));
    const IoCounts expected{.reads = 3, .writes = 4};
    EXPECT_EQ(readIoCounts({0, 0, 0, 0}, "/dev/sda"), expected);
    EXPECT_TRUE(isSuspended({0, 0, 0, 0}));
    EXPECT_FALSE(readIoCounts({0, 0, 0, 0}, ""));
    EXPECT_FALSE(readIoCounts({0, 0, 0, 0}, "/dev/sdb"));
    EXPECT_FALSE(isSuspended({0, 0, 1, 0}));
    EXPECT_TRUE(machine_->openings().empty());
    EXPECT_TRUE(machine_->commands().empty());
}

} // namespace
