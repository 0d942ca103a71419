// SPDX-License-Identifier: Apache-2.0
// Every call that can fail fails once: the 1st, 2nd, 3rd ... call of each kind, until a pass with its book comes
// through. After each failure nothing is held, no disk is said to fail, the book is whole, and the next pass is too.
#include "disks/book/book_file.h"
#include "disks/find/find.h"
#include "disks/identity/identity.h"
#include "disks/pass/pass.h"
#include "sim/sim.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tavstrg::disks;

namespace {

constexpr const char *kBookOfPasses = "/opt/qlm/tavkit_sa/work/disks.book";
constexpr unsigned kMostCalls = 2000; // more calls of one kind mean an error here

// A disk of each protocol, and one that belongs to an enclosure.
const char *const kMachine = R"({"kernel": "6.12.0", "hosts": [
    {"driver": "ahci", "devices": [{"ata": true, "serial": "ATA-1", "wwn": "5000c500b0a20000"}]},
    {"driver": "mpt3sas", "transport": "sas", "devices": [
        {"id": 0, "serial": "SAS-1", "wwn": "5000c500b0a10000", "logs": {"temperature": 30, "percentageUsed": 4}},
        {"id": 24, "type": "enclosure", "slots": [{"name": "Slot 0", "device": "1:0:0:0"}]}]}],
    "nvme": [{"serial": "NVME-1", "namespaces": [{"nguid": "00000000000000018ce38e0500a1b2c3"}]}],
    "virtio": [{"serial": "VIRTIO-1"}],
    "mmc": [{"cid": "4501004447343036340155a3c2f1d500", "lifeTime": "0x01 0x02", "preEolInfo": "0x01"}]})";

std::string told(const Disk &disk)
{
    return std::string(disk.name) + " " + disk.id + " " + disk.bay + " " + nameOf(disk.health.state) + " " +
           disk.health.reason;
}

// A pass with its book; what it shows.
std::vector<std::string> passOnce()
{
    std::vector<std::string> shown;
    Array<Disk> disks;
    Book book;
    Array<Event> events;
    int error = 0;
    Pass pass;
    if (findDisks(disks) != FindResult::done || !pass.run(disks)) {
        return shown;
    }
    nameAskedDisks(disks);
    if (readBook(kBookOfPasses, book, error) != BookRead::failed && enterPass(book, disks, 1000, events)) {
        static_cast<void>(saveBook(kBookOfPasses, book)); // its failure leaves the former one
    }
    for (const Disk &disk : disks) {
        shown.push_back(told(disk));
        EXPECT_NE(disk.health.state, HealthState::failing) << shown.back();
        EXPECT_NE(disk.health.state, HealthState::warning) << shown.back();
        EXPECT_NE(disk.id[0], '\0') << shown.back();
    }
    return shown;
}

struct Held {
    int64_t descriptors = sim::liveDescriptors();
    int64_t blocks = sim::liveBlocks();
};

class DisksFailure : public testing::TestWithParam<sim::Call> {
protected:
    DisksFailure() : machine_(kMachine) { sim::countCallsOf(""); }
    ~DisksFailure() override { sim::countCallsOf("libTAVStorageProvider.so"); }

    // False if the pass made fewer calls.
    bool runWithFault(unsigned nth)
    {
        const Held before;
        sim::failNth(GetParam(), nth);
        passOnce();
        const bool struck = sim::failureStruck();
        sim::failNth(GetParam(), 0);
        EXPECT_EQ(sim::liveDescriptors(), before.descriptors);
        EXPECT_EQ(sim::liveBlocks(), before.blocks);
        Book book;
        int error = 0;
        const BookRead read = readBook(kBookOfPasses, book, error);
        EXPECT_TRUE(read == BookRead::done || read == BookRead::absent) << error;
        return struck;
    }

    sim::Machine machine_;
};

TEST_P(DisksFailure, EachCallMayFailOnce)
{
    if (GetParam() == sim::Call::allocate && !sim::allocationsCanFail()) {
        GTEST_SKIP() << "a sanitizer owns the allocator in this build";
    }
    const std::vector<std::string> expected = passOnce();
    ASSERT_EQ(expected.size(), 5U);
    unsigned nth = 1;
    for (; nth < kMostCalls && !HasFailure(); ++nth) {
        SCOPED_TRACE("call " + std::to_string(nth) + " fails");
        if (!runWithFault(nth)) {
            break;
        }
        EXPECT_EQ(passOnce(), expected) << "the next pass is whole";
    }
    EXPECT_LT(nth, kMostCalls);
    EXPECT_GT(nth, 1U) << "no such call was made";
}

INSTANTIATE_TEST_SUITE_P(Calls, DisksFailure,
                         testing::Values(sim::Call::allocate, sim::Call::open, sim::Call::read, sim::Call::write,
                                         sim::Call::list, sim::Call::stat, sim::Call::ioctl, sim::Call::thread));

} // namespace
