// SPDX-License-Identifier: Apache-2.0
// Several processes in service mode on one machine: they share the saved state and the key files, and each has its own
// segments.
#include "scenarios/child.h"
#include "scenarios/generations.h"
#include "scenarios/monitored.h"

#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <unistd.h>

namespace {

using scenario::await;
using scenario::generationOf;
using scenario::machineOf;
using scenario::Server;

constexpr unsigned kProcesses = 5;
constexpr unsigned kGenerations = 12;
constexpr size_t kSegmentsEach = 5; // configuration, totals, controllers, SCSI devices, hard disks
constexpr unsigned kLongest = 60;   // seconds
const std::string kData = std::filesystem::path(scenario::kStateFile).parent_path();

// Stages of the processes: all move to the given generation at once and report it.
struct Stage {
    std::atomic<unsigned> generation{1};
    std::atomic<unsigned> arrived{0};
    std::atomic<unsigned> finished{0};
};

void takePart(const std::string &data, const std::string &work, Stage &stage)
{
    ::alarm(2 * kLongest);
    sim::Machine machine(machineOf(1));
    machine.link(kData, data);
    machine.link(scenario::kWork, work);
    scenario::Steps steps;
    Server server(scenario::inServiceMode());
    EXPECT_TRUE(steps.start(*server));
    for (unsigned generation = 1; generation <= kGenerations; ++generation) {
        if (!await([&] { return stage.generation >= generation; })) {
            break;
        }
        if (generation > 1) {
            machine.change(machineOf(generation));
            EXPECT_TRUE(steps.pass());
        }
        scenario::expectGeneration(*server, generation);
        ++stage.arrived;
    }
    await([&] { return stage.generation > kGenerations; });
    server->stop();
    scenario::expectNothingLeft(*server);
}

TEST(Processes, MonitoringOneMachineUseTheirOwnSegments)
{
    const sim::Machine machine(machineOf(1));
    const std::string data = machine.where(kData);
    const std::string work = machine.where(scenario::kWork);
    scenario::Shared<Stage> stage;
    std::vector<std::unique_ptr<scenario::Child>> children;
    for (unsigned i = 0; i < kProcesses; ++i) {
        children.push_back(std::make_unique<scenario::Child>([&] { takePart(data, work, *stage); }));
    }
    for (unsigned generation = 1; generation <= kGenerations; ++generation) {
        ASSERT_TRUE(await([&] { return stage->arrived == generation * kProcesses; })) << "generation " << generation;
        std::set<unsigned> keys;
        for (const auto &child : children) {
            const std::vector<process::Segment> segments = process::segmentsOf(child->pid());
            EXPECT_EQ(segments.size(), kSegmentsEach);
            for (const process::Segment &segment : segments) {
                keys.insert(segment.key);
            }
        }
        EXPECT_EQ(keys.size(), kProcesses * kSegmentsEach) << "each segment has a key of its own";
        std::string why;
        EXPECT_EQ(generationOf(machine.read(scenario::kStateFile), why), generation) << why;
        stage->generation = generation + 1;
    }
    for (const auto &child : children) {
        EXPECT_EQ(child->wait().status, 0);
        EXPECT_TRUE(process::segmentsOf(child->pid()).empty());
    }
    for (const auto &entry : std::filesystem::directory_iterator(work)) {
        EXPECT_THAT(entry.path().filename().string(), testing::MatchesRegex("tavstrgshm\\.key[0-9]+"));
    }
    for (const auto &entry : std::filesystem::directory_iterator(data)) {
        EXPECT_THAT(entry.path().filename().string(), testing::AnyOf("tavstrgsave.dat", "storage.inf"));
    }
}

void saveOftenTogether(const std::string &data, const std::string &work, Stage &stage)
{
    constexpr int kSaves = 150;
    ::alarm(2 * kLongest);
    sim::Machine machine(machineOf(1));
    machine.link(kData, data);
    machine.link(scenario::kWork, work);
    Server server;
    ++stage.arrived;
    await([&] { return stage.arrived >= kProcesses; });
    for (int i = 0; i < kSaves; ++i) {
        const broker::Reply reply = server->invokeMethod(
            "TAV_StorageConfig", "SetMonitorCycle", {{"MonitorCycle", broker::Value::text(std::to_string(10 + i))}});
        EXPECT_TRUE(reply.ok()) << reply.message;
    }
    server->stop();
    ++stage.finished;
}

TEST(Processes, SavingAtOnceKeepTheFileWhole)
{
    const sim::Machine machine(machineOf(1));
    const std::string data = machine.where(kData);
    const std::string work = machine.where(scenario::kWork);
    scenario::Shared<Stage> stage;
    std::vector<std::unique_ptr<scenario::Child>> children;
    for (unsigned i = 0; i < kProcesses; ++i) {
        children.push_back(std::make_unique<scenario::Child>([&] { saveOftenTogether(data, work, *stage); }));
    }
    ASSERT_TRUE(await([&] { return stage->arrived == kProcesses; }));
    unsigned looks = 0;
    std::string why;
    EXPECT_TRUE(await([&] {
        const std::string file = machine.read(scenario::kStateFile);
        EXPECT_TRUE(file.empty() || generationOf(file, why) == 1U) << why;
        ++looks;
        return stage->finished == kProcesses || HasFailure();
    }));
    EXPECT_GT(looks, 10U);
    for (const auto &child : children) {
        EXPECT_EQ(child->wait().status, 0);
    }
    EXPECT_EQ(generationOf(machine.read(scenario::kStateFile), why), 1U) << why;
    EXPECT_FALSE(machine.exists(std::string(scenario::kStateFile) + ".tmp"));
}

} // namespace
