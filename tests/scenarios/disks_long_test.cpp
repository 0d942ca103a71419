// SPDX-License-Identifier: Apache-2.0
// The disks engine in the long run, and on the largest machine.
#include "scenarios/disks_time.h"

#include "disks/book/book.h"
#include "disks/pass/pass.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

using namespace tavstrg::disks;

namespace {

TEST(DisksLong, FindingAndNaming4096DisksIsLinear)
{
    const double ofFew = scenario::findingSecondsPerDisk(512);
    const double ofMany = scenario::findingSecondsPerDisk(4096);
    EXPECT_LE(ofMany, 1.5 * ofFew) << "seconds for each disk";
    EXPECT_LE(ofMany, scenario::kMostFindingSeconds);
}

struct Held {
    long pages = 0; // of memory, resident
    long descriptors = 0;
    long threads = 0;
};

Held heldNow()
{
    Held held;
    long size = 0;
    std::ifstream("/proc/self/statm") >> size >> held.pages;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    held.descriptors = std::distance(begin(open), end(open));
    held.threads = std::distance(begin(tasks), end(tasks));
    return held;
}

TEST(DisksLong, TenThousandPassesAreFlat)
{
    constexpr int kPasses = 10000;
    constexpr int kFirst = 100;
    constexpr long kMorePages = 64; // what the C library keeps for later
    nlohmann::json machine = machines::disks(2);
    machine["hosts"].push_back({{"number", 7}, {"driver", "mpt3sas"}, {"devices", {{{"serial", "SAS-1"}}}}});
    machine["nvme"] = {{{"serial", "NVME-1"}, {"namespaces", {{{"nsid", 1}}}}}};
    machine["virtio"] = {{{"serial", "VIRTIO-1"}}};
    sim::Machine simulated(machines::text(machine));
    Book book;
    Pass pass;
    Held before;
    for (int i = 1; i <= kPasses; ++i) {
        Array<Disk> disks;
        Array<Event> events;
        ASSERT_EQ(findDisks(disks), FindResult::done);
        ASSERT_TRUE(pass.run(disks));
        ASSERT_TRUE(enterPass(book, disks, i, events));
        ASSERT_EQ(disks.count(), 5);
        simulated.forgetCommands();
        simulated.forgetOpenings();
        if (i == kFirst) {
            before = heldNow();
        }
    }
    const Held now = heldNow();
    EXPECT_LE(now.pages, before.pages + kMorePages);
    EXPECT_EQ(now.descriptors, before.descriptors);
    EXPECT_EQ(now.threads, before.threads);
}

} // namespace
