// SPDX-License-Identifier: Apache-2.0
// The lines of options.inf that cure a fault of the base system, in the provider as it ships: the broken case without
// the line, the cured case with it alone and with all of them.
#include "scenarios/clients.h"
#include "scenarios/killed_starts.h"
#include "scenarios/monitored.h"

#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <thread>
#include <unistd.h>

namespace {

using scenario::Server;
using testing::ElementsAre;
using testing::IsEmpty;
using Json = nlohmann::json;

constexpr const char *kOptionsFile = "/opt/qlm/tavkit_sa/data/options.inf";

// The same machine, without the file and with one of a given text.
std::string withOptions(Json machine, const std::string &text)
{
    if (!text.empty()) {
        machine["files"]["options.inf"] = text;
    }
    return machine.dump();
}

// A test with one line is run with that line alone and with all lines.
class Cures : public testing::TestWithParam<bool> {
protected:
    static std::string line(const char *name) { return GetParam() ? "all\n" : std::string(name) + "\n"; }
    // The same for a test whose disks have to be asked at each collection, which an unused disk is not with
    // "sleeping-disks".
    static std::string lineThatAsks(const char *name)
    {
        return GetParam()
                   ? "fair-requests\nsmart-state\ndisk-identity\ndisk-names\nuevents\nclean-text\nfirst-devices\n"
                   : std::string(name) + "\n";
    }
};

INSTANTIATE_TEST_SUITE_P(Lines, Cures, testing::Bool(),
                         [](const auto &testInfo) { return testInfo.param ? "All" : "Alone"; });

// The serial numbers of the SCSI devices, in order; the refusal's code where there is one.
std::vector<std::string> serialNumbers(broker::Broker &broker)
{
    const broker::Reply reply = broker.enumInstances("TAV_StorageSCSIDevice");
    std::vector<std::string> numbers;
    for (const broker::Instance &instance : reply.instances) {
        numbers.push_back(instance.find("SerialNumber")->toString());
    }
    return reply.ok() ? numbers : std::vector{"refused: " + std::to_string(reply.rc)};
}

const std::vector<std::string> kFailed = {"refused: 1"};
const std::vector<std::string> kNothing = {"refused: 6"};

Json oneDisk(const std::string &serial)
{
    return machines::withDevices({machines::ataDisk("MODEL", serial, uint64_t{1} << 30)});
}

TEST_P(Cures, KernelReleaseWithSignsOfADistribution)
{
    for (const char *const release : {"6.12.117+deb12-amd64", "6.9.7_1"}) {
        Json description = oneDisk("SERIAL");
        description["kernel"] = release;
        sim::Machine machine(withOptions(description, ""));
        Server server;
        EXPECT_EQ(serialNumbers(*server), kFailed) << release;
        machine.write(kOptionsFile, line("kernel-release"));
        EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL")) << release << ", without a restart";
        machine.remove(kOptionsFile);
        EXPECT_EQ(serialNumbers(*server), kFailed) << release << ", without a restart";
    }
}

TEST_P(Cures, KernelReleaseOfTenIsNotAnEmptyMachine)
{
    Json description = oneDisk("SERIAL");
    description["kernel"] = "10.2.3-1-amd64";
    sim::Machine machine(withOptions(description, ""));
    Server server;
    EXPECT_EQ(serialNumbers(*server), kNothing);
    machine.write(kOptionsFile, line("kernel-release"));
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
}

// The name of a disk is looked for in all nodes, or read from its own directory.
TEST_P(Cures, AnUnmanagedDiskThatHangsStallsNothing)
{
    constexpr const char *kHung = "/dev/sdb";
    Json description = oneDisk("SERIAL");
    description["hosts"].push_back(
        {{"number", 1},
         {"driver", "virtio_scsi"},
         {"devices", Json::array({machines::ataDisk("MODEL", "UNMANAGED", uint64_t{1} << 30)})}});
    sim::Machine machine(withOptions(description, ""));
    Server server;
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
    machine.hold(kHung);
    std::thread stalled([&] { EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL")); });
    EXPECT_TRUE(machine.awaitWaiting(kHung, 1, 60));
    machine.release(kHung);
    stalled.join();

    machine.write(kOptionsFile, line("disk-names"));
    machine.hold(kHung);
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
    EXPECT_EQ(machine.waiting(kHung), 0U);
    machine.release(kHung);
}

// Whether a segment of this process contains a text.
bool isPublished(const std::string &text)
{
    const auto segments = process::segmentsOf(::getpid());
    return std::any_of(segments.begin(), segments.end(), [&](const process::Segment &segment) {
        const auto *const bytes = static_cast<const char *>(::shmat(segment.id, nullptr, SHM_RDONLY));
        const bool found = std::string_view(bytes, segment.bytes).find(text) != std::string_view::npos;
        ::shmdt(bytes);
        return found;
    });
}

constexpr const char *kControl = "S\x01"
                                 "ERIAL";

struct CleanTextSeen {
    std::vector<std::string> serials;
    std::string savedState;
};

CleanTextSeen seenWith(const std::string &options)
{
    const sim::Machine machine(withOptions(oneDisk(kControl), options));
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    EXPECT_TRUE(steps.start(*server));
    CleanTextSeen seen = {serialNumbers(*server), ""};
    EXPECT_TRUE(isPublished(kControl));
    EXPECT_EQ(scenario::stopThread(*server), 0);
    server->stop();
    seen.savedState = machine.read(scenario::kStateFile);
    return seen;
}

TEST_P(Cures, CleanTextIsForClientsOnly)
{
    const CleanTextSeen without = seenWith("");
    EXPECT_THAT(without.serials, ElementsAre(kControl));
    const CleanTextSeen with = seenWith(line("clean-text"));
    EXPECT_THAT(with.serials, ElementsAre("S?ERIAL"));
    if (!GetParam()) { // other cures change other records
        EXPECT_EQ(with.savedState, without.savedState);
    }
    EXPECT_NE(with.savedState.find(kControl), std::string::npos);
}

// A disk that predicts its failure, on a machine whose first start saw none.
TEST_P(Cures, FirstDevicesAreTakenOver)
{
    const scenario::Agent agent;
    Json description = oneDisk("SERIAL");
    machines::deviceAt(description, 0)["smart"]["failing"] = true;
    description["agent"] = {{"libraries", true}};
    Json before = machines::withoutDevices();
    before["agent"] = description["agent"];
    sim::Machine machine(before.dump());
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    ASSERT_TRUE(steps.start(*server));
    machine.change(description.dump());
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(steps.pass());
        EXPECT_THAT(agent.alerts(), IsEmpty()) << "no pass succeeds without the line";
        EXPECT_EQ(serialNumbers(*server), kNothing);
    }
    machine.write(kOptionsFile, line("first-devices"));
    ASSERT_TRUE(steps.pass());
    const std::vector<std::string> alerts = agent.alerts(); // with all lines also one about the disk
    EXPECT_THAT(alerts,
                testing::IsSupersetOf({std::string("0x800403E9"), std::string(scenario::kConfigurationChange)}));
    EXPECT_EQ(alerts.size(), GetParam() ? 3U : 2U);
    EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
    ASSERT_TRUE(steps.pass());
    EXPECT_EQ(agent.alerts(), alerts) << "once";
    EXPECT_EQ(scenario::stopThread(*server), 0);
}

TEST_P(Cures, SegmentsOfKilledProcessesAreRemovedByTheNextStart)
{
    constexpr size_t kKills = 6;
    using scenario::KilledStarts;
    KilledStarts without("");
    KilledStarts with(line("stale-segments"));
    for (size_t kills = 1; kills <= kKills && !HasFailure(); ++kills) {
        without.killOneThatAnswers();
        EXPECT_EQ(without.segmentsLeft(), kills * KilledStarts::kSegmentsEach);
        with.killOneThatAnswers();
        EXPECT_EQ(with.segmentsLeft(), KilledStarts::kSegmentsEach) << "those of the last one";
    }
}

TEST_P(Cures, SegmentsOfKillsAtAnyMomentAreRemovedByTheNextStart)
{
    constexpr int kKills = 60;
    scenario::KilledStarts starts(line("stale-segments"));
    for (int i = 0; i < kKills; ++i) {
        starts.killOneAtAnyMoment();
    }
    starts.killOneThatAnswers();
    EXPECT_EQ(starts.segmentsLeft(), scenario::KilledStarts::kSegmentsEach);
}

// Two providers on one machine: what the first one holds stays when the second one starts, also many times.
TEST_P(Cures, SegmentsOfALivingProcessAreNeverTouched)
{
    const sim::Machine machine(oneDisk("SERIAL").dump());
    const std::string work = machine.where(scenario::kWork);
    const std::string options = line("stale-segments");
    struct Stage {
        std::atomic<bool> started{false}, others{false};
    };
    scenario::Shared<Stage> stage;
    scenario::Child holder([&] {
        sim::Machine own(withOptions(oneDisk("SERIAL"), options));
        own.link(scenario::kWork, work);
        scenario::Steps steps;
        Server server(scenario::inServiceMode());
        EXPECT_TRUE(steps.start(*server));
        stage->started = true;
        EXPECT_TRUE(scenario::await([&] { return stage->others.load(); }));
        EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL")) << "read from its segments";
        EXPECT_TRUE(steps.pass());
        server->stop();
        scenario::expectNothingLeft(*server);
    });
    ASSERT_TRUE(scenario::await([&] { return stage->started.load(); }));
    const size_t before = process::segmentsOf(holder.pid()).size();
    EXPECT_EQ(before, scenario::KilledStarts::kSegmentsEach);
    for (int start = 0; start < 5; ++start) {
        scenario::Child other([&] {
            sim::Machine own(withOptions(oneDisk("SERIAL"), options));
            own.link(scenario::kWork, work);
            Server server;
            EXPECT_THAT(serialNumbers(*server), ElementsAre("SERIAL"));
        });
        EXPECT_EQ(other.wait().status, 0);
        EXPECT_EQ(process::segmentsOf(holder.pid()).size(), before);
    }
    stage->others = true;
    EXPECT_EQ(holder.wait().status, 0);
}

// Disks that take so long together that a collection is longer than a request waits for the store. The provider's
// pauses are shortened, so that it waits 30 ms and not three seconds.
Json slowDisks(int delayMs = 5)
{
    Json description = machines::disks(4);
    machines::forEachDevice(description, [=](Json &disk) { disk["delayMs"] = delayMs; });
    return description;
}

TEST_P(Cures, RequestsThatWaitForACollectionAreServedWithFairRequestsOnly)
{
    constexpr size_t kClients = 8;
    sim::Machine machine(withOptions(slowDisks(), ""));
    Server server;
    EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    sim::shortenSleeps(100);
    const scenario::ClientsSeen without = scenario::letClientsAsk(*server, kClients, 3, 0);
    machine.write(kOptionsFile, lineThatAsks("fair-requests"));
    EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()); // reads the options
    const scenario::ClientsSeen with = scenario::letClientsAsk(*server, kClients, 3, 0);
    sim::shortenSleeps(1);
    EXPECT_THAT(without.refusals, testing::Not(IsEmpty()));
    EXPECT_THAT(with.refusals, IsEmpty());
    EXPECT_LE(with.collections[with.requests / 2], 3U); // a client that is not run for a while counts too many
    EXPECT_LT(with.collectionsOfAll, with.requests / 2) << "shared with all that arrived meanwhile";
}

TEST_P(Cures, RequestsDuringTheFirstBuildAreServedWithFairRequestsOnly)
{
    for (const bool on : {false, true}) {
        const sim::Machine machine(withOptions(slowDisks(8), on ? lineThatAsks("fair-requests") : ""));
        Server server;
        sim::shortenSleeps(on ? 10 : 100); // a step may take longer than 30 ms on a busy machine
        const scenario::ClientsSeen seen = scenario::letClientsAsk(*server, 4, 1, 0);
        sim::shortenSleeps(1);
        EXPECT_EQ(seen.refusals.empty(), on) << testing::PrintToString(seen.refusals);
    }
}

// A disk whose answer takes five seconds: meanwhile nothing gets further, and a request behind it is refused after
// three.
TEST_P(Cures, RequestsForAStuckStoreAreRefusedWithFairRequestsToo)
{
    // Other cures do not ask a disk that has done nothing, or leave one behind that hangs.
    const std::string options =
        GetParam() ? "fair-requests\nkernel-release\nclean-text\nstale-segments\nfirst-devices\n" : "fair-requests\n";
    Json description = oneDisk("SERIAL");
    sim::Machine machine(withOptions(description, options));
    Server server;
    EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok());
    machines::deviceAt(description, 0)["faults"] = {{{"on", "identity"}, {"nth", 1}, {"delayMs", 5000}}};
    machine.change(withOptions(description, options));
    const unsigned before = sim::callsMade(sim::Call::uname);
    std::thread first([&] { EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()); });
    EXPECT_TRUE(scenario::await([&] { return sim::callsMade(sim::Call::uname) > before; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(server->enumInstances("TAV_StorageHardDisk").ok());
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(2900));
    EXPECT_LT(waited, std::chrono::milliseconds(4900));
    first.join();
    EXPECT_TRUE(server->enumInstances("TAV_StorageHardDisk").ok()) << "and works again";
}

} // namespace
