// SPDX-License-Identifier: Apache-2.0
// Long runs: memory, descriptors and segments do not grow, and each disk is left in its original state.
#include "scenarios/clients.h"
#include "scenarios/killed_starts.h"
#include "scenarios/monitored.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <scsi/sg.h>
#include <set>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using broker::Value;
using nlohmann::json;
using scenario::Server;

// Resources of the process.
struct Holding {
    long pages; // of memory, resident
    long descriptors;
    int64_t blocks, segments;
};

Holding holdingNow()
{
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return {resident, std::distance(begin(open), end(open)), sim::liveBlocks(), sim::liveSegments()};
}

// Memory that the C library caches does not count as growth.
void expectNoGrowth(const Holding &now, const Holding &before, long morePages)
{
    EXPECT_LE(now.pages, before.pages + morePages);
    EXPECT_EQ(now.descriptors, before.descriptors);
    EXPECT_EQ(now.blocks, before.blocks);
    EXPECT_EQ(now.segments, before.segments);
    testing::Test::RecordProperty("pagesMore", static_cast<int>(now.pages - before.pages));
}

size_t disksIn(broker::Broker &broker)
{
    const broker::Reply totals = broker.getInstance("TAV_StorageTotalNumber");
    return totals.instances.size() == 1 ? std::stoul(totals.instances[0].find("HardDiskTotalNumber")->toString()) : 0;
}

constexpr const char *kNoScsi = "/opt/qlm/tavkit_sa/data/noscsi.inf";

// noscsi.inf that excludes disks by the number in their models.
std::string leavesOut(int disks)
{
    std::string text;
    for (int i = 0; i < disks; ++i) {
        text += "Vendor: Model:MODEL-" + std::to_string(1000 + 7 * i) + "\n";
    }
    return text;
}

TEST(Long, TenThousandPassesDoNotGrow)
{
    constexpr int kPasses = 10000;
    constexpr int kFirst = 100;
    constexpr int kDisks = 128;
    constexpr long kMorePages = 64;
    sim::Machine machine(machines::ofDisks(kDisks));
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    ASSERT_TRUE(steps.start(*server));
    ASSERT_TRUE(
        server->invokeMethod("TAV_StorageConfig", "SetHardDiskSmartMode", {{"HardDiskSmartMode", Value::text("0")}})
            .ok());
    Holding afterFirst = {};
    for (int pass = 1; pass <= kPasses; ++pass) {
        const int leftOut = pass / 10 % 5; // disks come and go every ten passes
        if (pass % 10 == 0) {
            machine.write(kNoScsi, leavesOut(leftOut));
        }
        ASSERT_TRUE(steps.pass());
        machine.forgetCommands();
        machine.forgetOpenings();
        if (pass % 500 == 0) { // seldom: the embedded broker records each request
            ASSERT_EQ(disksIn(*server), static_cast<size_t>(kDisks - leftOut)) << "pass " << pass;
        }
        if (pass == kFirst) {
            afterFirst = holdingNow();
        }
    }
    expectNoGrowth(holdingNow(), afterFirst, kMorePages);
    server->stop();
    scenario::expectNothingLeft(*server);
}

// More kills than the kernel has room for: without the line, starts fail after some 800.
TEST(Long, FiveThousandKillsAndStartsGoOn)
{
    constexpr int kKills = 5000;
    constexpr int kEach = 50;
    scenario::KilledStarts starts("stale-segments\n");
    for (int i = 1; i <= kKills && !HasFailure(); ++i) {
        if (i % kEach != 0) {
            starts.killOneAtAnyMoment();
            continue;
        }
        starts.killOneThatAnswers();
        EXPECT_EQ(starts.segmentsLeft(), scenario::KilledStarts::kSegmentsEach) << "after " << i << " kills";
    }
}

// Collections that 99 of 100 requests saw at most. A client that gets no processor between its answer and its count
// sees the others' collections too.
unsigned collectionsSeen(const scenario::ClientsSeen &seen)
{
    return seen.collections[(seen.requests - 1) * 99 / 100];
}

TEST(Long, SixteenClientsForAMinuteAreAllServedInTurn)
{
    constexpr size_t kClients = 16;
    constexpr size_t kDisks = 128;
    constexpr int kRuns = 3; // the best one counts: other processes use the processors too
    json description = machines::disks(kDisks);
    machines::forEachDevice(description,
                            [](json &disk) { disk["delayMs"] = 1; }); // else it counts the scheduler's turns
    description["files"]["options.inf"] = "fair-requests\n";
    sim::Machine machine(description.dump());
    Server server;
    unsigned most = UINT_MAX;
    for (int run = 0; run < kRuns; ++run) {
        const scenario::ClientsSeen seen = scenario::letClientsAsk(*server, kClients, 1, 60.0 / kRuns);
        EXPECT_THAT(seen.refusals, testing::IsEmpty());
        ASSERT_GT(seen.requests, 2 * kClients);
        most = std::min(most, collectionsSeen(seen));
    }
    EXPECT_LE(most, 3U);
}

// Processor time of a request for all of them, and their number in the answer.
double secondsForChangers(size_t changers)
{
    json description = machines::withoutDevices();
    for (size_t i = 0; i < changers; ++i) {
        machines::attach(description, i, {{"type", 8}, {"vendor", "V"}, {"model", "C" + std::to_string(i)}}, 200);
    }
    const sim::Machine machine(description.dump());
    Server server;
    EXPECT_EQ(server->enumInstances("TAV_StorageMisc").instances.size(), changers);
    const std::clock_t start = std::clock();
    EXPECT_EQ(server->enumInstances("TAV_StorageMisc").instances.size(), changers);
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

TEST(Long, TwentyThousandChangersTakeTimeInProportion)
{
    const double few = secondsForChangers(4000);
    const double many = secondsForChangers(20000);
    EXPECT_LT(many, 5 * few * 3) << few << " s for 4000";
    RecordProperty("milliseconds", static_cast<int>(many * 1000));
}

// ---- a day of a machine with all kinds of disks and frequent faults ----

constexpr size_t kDayDisks = 32;

enum class DiskKind { sata, scsi, m2 };

DiskKind kindOf(size_t disk)
{
    return disk % 4 == 1 ? DiskKind::scsi : disk % 4 == 3 ? DiskKind::m2 : DiskKind::sata;
}

// Half of each kind has SMART switched on.
bool isOn(size_t disk)
{
    return disk / 4 % 2 == 0;
}

// Commands whose failure does not prevent the provider from restoring the disk: all but those that read the setting and
// those that restore it. A setting that could not be read is not restored, and a SATA disk whose data cannot be read
// counts as off.
std::vector<const char *> failingIn(size_t disk)
{
    if (kindOf(disk) == DiskKind::scsi) {
        return isOn(disk) ? std::vector{"inquiry", "modeSense", "modeSelect", "logSense", "requestSense", "identity"}
                          : std::vector{"inquiry", "logSense", "requestSense", "identity"};
    }
    return isOn(disk) ? std::vector{"inquiry", "identify", "smartEnable", "smartStatus", "geometry", "size"}
                      : std::vector{"inquiry", "identify", "smartEnable", "smartStatus", "smartData"};
}

json faultsOf(size_t disk)
{
    constexpr double kShare = 0.01;
    json faults = json::array();
    for (const char *const on : failingIn(disk)) {
        const bool ioctl =
            std::string_view(on) == "geometry" || std::string_view(on) == "size" || std::string_view(on) == "identity";
        switch (ioctl ? 0 : disk % 3) {
        case 0:
            faults.push_back({{"on", on}, {"probability", kShare}, {"errno", "EIO"}});
            break;
        case 1: // aborted by the kernel after its time-out
            faults.push_back({{"on", on}, {"probability", kShare}, {"hostStatus", 3}});
            break;
        default:
            faults.push_back({{"on", on}, {"probability", kShare}, {"sense", "70 00 04 00 00 00 00 0a"}});
        }
    }
    return faults;
}

std::string nodeOf(size_t disk)
{
    return disk < 26 ? std::string("sd") + static_cast<char>('a' + disk)
                     : std::string("sda") + static_cast<char>('a' + disk - 26);
}

json deviceOf(size_t disk)
{
    json device = {{"ata", true},        {"node", nodeOf(disk)},           {"serial", "DAY-" + std::to_string(disk)},
                   {"revision", "FW01"}, {"sizeBytes", uint64_t{1} << 30}, {"faults", faultsOf(disk)}};
    switch (kindOf(disk)) {
    case DiskKind::scsi: // answers as a SCSI disk does, behind an adapter that identifies it
        device["vendor"] = "TEST";
        device["model"] = "SCSI DISK";
        device["exceptions"] = {{"supported", true}, {"dexcpt", !isOn(disk)}};
        break;
    case DiskKind::m2:
        device["model"] = "HALDEN M2S 256GB";
        device["smart"] = {{"enabled", isOn(disk)},
                           {"attributes", {{{"id", 231}, {"flags", 50}, {"current", 30 + disk}}}}};
        break;
    default:
        device["model"] = "NORDWIND NW4000";
        device["smart"] = {{"enabled", isOn(disk)}};
    }
    return device;
}

// The machine without some of its disks.
std::string dayMachine(const std::set<size_t> &without, unsigned seed)
{
    json machine = machines::withoutDevices();
    machine["seed"] = seed;
    machine["files"]["tavm2ssd.inf"] = "[Endurance Remaining]\nHALDEN M2S 256GB,231,100,80,60,40,20,0\n";
    for (size_t disk = 0; disk < kDayDisks; ++disk) {
        machines::addHost(machine, disk / machines::kDevicesPerHost);
        if (!without.contains(disk)) {
            machines::attach(machine, disk, deviceOf(disk));
        }
    }
    return machines::text(machine);
}

// A SCSI disk's answer to MODE SENSE(6) of page 1C: whether DEXCPT is clear, that is, exceptions are reported (SPC-4).
bool reportsExceptions(const std::string &node)
{
    const int fd = ::open(("/dev/" + node).c_str(), O_RDWR);
    std::array<uint8_t, 6> cdb = {0x1A, 0x08, 0x1C, 0, 64, 0};
    std::array<uint8_t, 64> reply = {};
    sg_io_hdr header = {};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = cdb.size();
    header.cmdp = cdb.data();
    header.dxfer_len = reply.size();
    header.dxferp = reply.data();
    EXPECT_EQ(::ioctl(fd, SG_IO, &header), 0);
    ::close(fd);
    constexpr size_t kPage = 4; // after the header: no block descriptor is requested
    EXPECT_EQ(reply[kPage] & 0x3F, 0x1C) << node;
    return (reply[kPage + 2] & 0x08) == 0;
}

void withoutFaults(std::string &description)
{
    json machine = json::parse(description);
    machines::forEachDevice(machine, [](json &device) { device.erase("faults"); });
    description = machines::text(machine);
}

TEST(Long, ADayOfFailingDisksRestoresEachDisk)
{
    constexpr int kPasses = 24 * 60;
    constexpr int kFirst = 200;
    constexpr long kMorePages = 2048; // the simulator keeps removed disks
    std::mt19937 random(86400);
    std::set<size_t> without;
    sim::Machine machine(dayMachine(without, 1));
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    for (unsigned tries = 0; !server->getInstance("TAV_StorageThread").ok() && tries < 100; ++tries) {
    } // the first collection may meet a failure
    ASSERT_TRUE(steps.start(*server));
    Holding afterFirst = {};
    unsigned whole = 0;
    for (int pass = 1; pass <= kPasses; ++pass) {
        if (pass % 5 == 0) {
            const size_t disk = random() % kDayDisks;
            if (!without.erase(disk)) {
                without.insert(disk);
            }
            while (without.size() > 6) {
                without.erase(without.begin());
            }
        }
        if (pass % 5 == 1) { // also during a pass: disks are removed between their commands
            sim::wakeSleepers();
            machine.change(dayMachine(without, static_cast<unsigned>(pass)));
        }
        ASSERT_TRUE(steps.pass()) << "pass " << pass;
        whole += disksIn(*server) == kDayDisks - without.size() ? 1 : 0;
        machine.forgetCommands();
        if (pass == kFirst) {
            afterFirst = holdingNow();
        }
    }
    EXPECT_GT(whole, 100U) << "passes whose answer was the whole machine";

    std::string end = dayMachine({}, 1);
    withoutFaults(end);
    machine.change(end);
    ASSERT_TRUE(steps.pass());
    ASSERT_TRUE(steps.pass());
    EXPECT_EQ(disksIn(*server), kDayDisks);
    EXPECT_EQ(scenario::threadRuns(*server), true);
    machine.forgetCommands();
    const Holding now = holdingNow();
    expectNoGrowth(now, afterFirst, kMorePages);
    RecordProperty("wholePasses", static_cast<int>(whole));
    for (size_t disk = 0; disk < kDayDisks; ++disk) {
        const bool on = kindOf(disk) == DiskKind::scsi ? reportsExceptions(nodeOf(disk))
                                                       : machine.smartSwitchedOn("/dev/" + nodeOf(disk));
        EXPECT_EQ(on, isOn(disk)) << nodeOf(disk);
    }
    EXPECT_EQ(machine.unknownIoctls(), 0U);
    server->stop();
    scenario::expectNothingLeft(*server);
}

} // namespace
