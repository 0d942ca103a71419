// SPDX-License-Identifier: Apache-2.0
// What scenarios of monitoring share: starting and stopping the thread as a client does, walking it from pass to pass,
// and what the agent's libraries were told.
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

// Tries until something is so, and then not again; false when it is not after so many seconds.
bool await(const std::function<bool()> &condition, double seconds = 60);

// The methods of TAV_StorageThread; the code that the method gave, 0 for success.
int startThread(broker::Broker &broker);
int stopThread(broker::Broker &broker);
bool threadRuns(broker::Broker &broker);

// The monitoring thread walked from one pass to the next: it sleeps until the next step. Makes the product's sleeps
// held as long as it lives.
class Steps {
public:
    Steps();
    ~Steps();
    Steps(const Steps &) = delete;
    Steps &operator=(const Steps &) = delete;
    // Starts the thread and waits for the end of its first pass. False when that did not come.
    bool start(broker::Broker &broker);
    // One more pass.
    bool pass();

private:
    unsigned passes_ = 0;
};

// Where the agent's development libraries write, in a directory of its own, as long as this lives. To be made before
// the provider loads them.
class Agent {
public:
    explicit Agent(int lowestTraceLevel = 3);
    ~Agent();
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    std::vector<std::string> alerts() const; // the ids of their events, in order
    bool traced(const std::string &text) const;
    void forget();

private:
    std::string directory_;
};

} // namespace scenario
