// SPDX-License-Identifier: Apache-2.0
#include "scenarios/killed_starts.h"

#include "scenarios/generations.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <unistd.h>

namespace scenario {

namespace {

const std::string kData = std::filesystem::path(kStateFile).parent_path();
constexpr unsigned kLongestMicroseconds = 20000; // to the kill of one that is killed at any moment
constexpr double kLongestStart = 30;             // seconds
constexpr unsigned kAlarm = 120;                 // seconds; ends a child whose parent is gone

} // namespace

KilledStarts::KilledStarts(const std::string &options)
    : machine_(machineOf(1)), data_(machine_.where(kData)), work_(machine_.where(kWork))
{
    if (!options.empty()) {
        machine_.write(kData + "/options.inf", options);
    }
}

KilledStarts::~KilledStarts()
{
    for (const pid_t pid : killed_) {
        process::removeSegmentsOf(pid);
    }
}

void KilledStarts::live(bool answering)
{
    ::alarm(kAlarm);
    sim::Machine machine(machineOf(1));
    std::snprintf(progress_->root, sizeof progress_->root, "%s", machine.where("").c_str());
    machine.link(kData, data_);
    machine.link(kWork, work_);
    for (unsigned generation = 1;; ++generation) {
        Server server;
        machine.change(machineOf(generation));
        bool answered = server->enumInstances("TAV_StorageHardDisk").ok();
        machine.change(machineOf(generation + 1)); // another number of disks: segments are replaced
        answered = server->enumInstances("TAV_StorageHardDisk").ok() && answered;
        progress_->answered = answered;
        while (answering && answered) {
            ::pause();
        }
    }
}

void KilledStarts::kill(bool answering)
{
    progress_->answered = false;
    Child child([=, this] { live(answering); });
    if (answering) {
        EXPECT_TRUE(await([&] { return progress_->answered.load(); }, kLongestStart)) << "a start fails";
        segmentsLeft();
    } else {
        std::this_thread::sleep_for(std::chrono::microseconds(random_() % kLongestMicroseconds));
    }
    child.send(SIGKILL);
    EXPECT_EQ(child.wait().signal, SIGKILL);
    killed_.push_back(child.pid());
    std::error_code ignored;
    std::filesystem::remove_all(progress_->root, ignored);
}

void KilledStarts::killOneThatAnswers()
{
    kill(true);
}

void KilledStarts::killOneAtAnyMoment()
{
    kill(false);
}

size_t KilledStarts::segmentsLeft()
{
    size_t left = 0;
    std::erase_if(killed_, [&](pid_t pid) {
        const size_t segments = process::segmentsOf(pid).size();
        left += segments;
        return segments == 0;
    });
    return left;
}

} // namespace scenario
