// SPDX-License-Identifier: Apache-2.0
#include "scenarios/monitored.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace scenario {

namespace {

constexpr double kLongestPass = 60; // seconds, under sanitizers on a busy machine

int invoke(broker::Broker &broker, const char *method)
{
    const broker::Reply reply = broker.invokeMethod("TAV_StorageThread", method);
    return reply.data.size() == 1 ? std::stoi(reply.data[0].toString()) : -1;
}

std::string contentOf(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

broker::Options inServiceMode()
{
    broker::Options options;
    options.serviceMode = true;
    return options;
}

bool await(const std::function<bool()> &condition, double seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool met = condition();
    while (!met && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        met = condition();
    }
    return met;
}

int startThread(broker::Broker &broker)
{
    return invoke(broker, "StartMonitoringThread");
}

int stopThread(broker::Broker &broker)
{
    return invoke(broker, "StopMonitoringThread");
}

bool threadRuns(broker::Broker &broker)
{
    const broker::Reply reply = broker.getInstance("TAV_StorageThread");
    return reply.instances.size() == 1 && reply.instances[0].find("ThreadRunning")->toString() == "1";
}

long threadsNow()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

Steps::Steps()
{
    sim::holdSleeps(true);
}

Steps::~Steps()
{
    sim::holdSleeps(false);
}

bool Steps::start(broker::Broker &broker)
{
    passes_ = sim::sleepsBegun();
    return startThread(broker) == 0 && sim::awaitSleep(++passes_, kLongestPass);
}

bool Steps::pass()
{
    passes_ = sim::sleepsBegun(); // another call may have woken it since
    sim::wakeSleepers();
    return sim::awaitSleep(++passes_, kLongestPass);
}

Agent::Agent(int lowestTraceLevel)
    : directory_(std::filesystem::temp_directory_path() / ("tav-agent-" + std::to_string(::getpid())))
{
    std::filesystem::create_directories(directory_);
    ::setenv("TAVLOG_FILE", (directory_ + "/trace").c_str(), 1);
    ::setenv("TAVLOG_LEVEL", std::to_string(lowestTraceLevel).c_str(), 1);
    ::setenv("TAVALERT_FILE", (directory_ + "/alerts").c_str(), 1);
    ::setenv("TAVALERT_QUIET", "1", 1);
}

Agent::~Agent()
{
    for (const char *const name : {"TAVLOG_FILE", "TAVLOG_LEVEL", "TAVALERT_FILE", "TAVALERT_QUIET"}) {
        ::unsetenv(name);
    }
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

std::vector<std::string> Agent::alerts() const
{
    std::vector<std::string> ids;
    for (const nlohmann::json &alert : alertLines()) {
        ids.push_back(alert["eventId"]);
    }
    return ids;
}

std::vector<nlohmann::json> Agent::alertLines() const
{
    std::vector<nlohmann::json> alerts;
    std::istringstream lines(contentOf(directory_ + "/alerts"));
    for (std::string line; std::getline(lines, line);) {
        // A process that is killed while it writes leaves the beginning of a line.
        if (const size_t begin = line.rfind("{\"time\":"); begin != std::string::npos && line.ends_with('}')) {
            alerts.push_back(nlohmann::json::parse(line.substr(begin)));
        }
    }
    return alerts;
}

bool Agent::traced(const std::string &text) const
{
    return contentOf(directory_ + "/trace").find(text) != std::string::npos;
}

void Agent::forget()
{
    // Emptied, not removed: the trace library notices that its file was removed only a clock tick later.
    std::error_code absent;
    std::filesystem::resize_file(directory_ + "/alerts", 0, absent);
    std::filesystem::resize_file(directory_ + "/trace", 0, absent);
}

} // namespace scenario
