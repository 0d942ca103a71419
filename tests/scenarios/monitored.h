// SPDX-License-Identifier: Apache-2.0
// Helpers for scenarios of monitoring: starting and stopping the thread as a client does, stepping it from pass to
// pass, and the calls of the agent's libraries.
#pragma once

#include "scenarios/scenario.h"

#include <functional>
#include <string>
#include <vector>

namespace scenario {

constexpr const char *kStateFile = "/opt/qlm/tavkit_sa/data/tavstrgsave.dat";
constexpr const char *kWork = "/opt/qlm/tavkit_sa/work";
constexpr const char *kConfigurationChange = "0x400407D0"; // id of its alert

broker::Options inServiceMode();

// Polls until the condition holds. Returns false if it does not within the time.
bool await(const std::function<bool()> &condition, double seconds = 60);

// The methods of TAV_StorageThread. Return the method's return value, 0 for success.
int startThread(broker::Broker &broker);
int stopThread(broker::Broker &broker);
bool threadRuns(broker::Broker &broker);
// Number of threads of this process.
long threadsNow();

// Steps the monitoring thread from one pass to the next: during its life the provider's sleeps last until the next
// step.
class Steps {
public:
    Steps();
    ~Steps();
    Steps(const Steps &) = delete;
    Steps &operator=(const Steps &) = delete;
    // Starts the thread and waits for the end of its first pass. Returns false if it does not end.
    bool start(broker::Broker &broker);
    // One more pass.
    bool pass();

private:
    unsigned passes_ = 0;
};

// Directs the output of the agent's development libraries to a temporary directory during its life. Constructed before
// the provider loads them.
class Agent {
public:
    explicit Agent(int lowestTraceLevel = 3);
    ~Agent();
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    std::vector<std::string> alerts() const; // the ids of their events, in order
    std::vector<nlohmann::json> alertLines() const;
    bool traced(const std::string &text) const;
    void forget();

private:
    std::string directory_;
};

} // namespace scenario
