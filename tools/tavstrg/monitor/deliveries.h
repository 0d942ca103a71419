// SPDX-License-Identifier: Apache-2.0
// The events of the disks on their routes. No route waits for another one, and nothing here waits at all: programs run
// beside the service, and what a route refuses is tried again later.
//
// Before an event is handed over its letter on the route becomes "s", afterwards "d". After a kill in between:
//   journal, hooks, agent   it is handed over again, marked as repeated: at least once
//   lines                   it is looked for in the file: exactly once
#pragma once

#include "tavstrg/monitor/config.h"
#include "tavstrg/monitor/programs.h"
#include "tavstrg/monitor/state_file.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool::monitor {

constexpr int64_t kRetryMs = 60000; // until an event that a route has refused is tried again

// Says something on standard error: once, until something else is to be said of the same subject; an empty text ends
// the matter without a word.
using Say = std::function<void(const std::string &subject, const std::string &text)>;

class Deliveries {
public:
    // agentCommand: what hands the event in its environment to the agent.
    Deliveries(State &state, StateFile &file, Programs::Command agentCommand, Say say);

    // Routes that the configuration switches off lose their events.
    void configure(const Config &config);
    const bool (&wanted() const)[kRoutes] { return wanted_; }

    // Delivers what can be delivered now. now: milliseconds of a clock that is not set.
    void deliver(int64_t now);
    // When deliver() is to be called, if nothing happens before.
    std::optional<int64_t> wakeAt() const;
    // Whether everything is delivered or has been refused.
    bool isSettled() const;
    size_t open() const; // events that are on their way
    void stop();         // kills the programs; their events are repeated

private:
    int handOver(Route route, const Report &report, bool repeated);
    void deliverAtOnce(Route route, int64_t now);
    void deliverByPrograms(Route route, int64_t now);
    void startNext(Route route, int64_t now);
    void takeEnds(Route route, int64_t now);
    void set(Report &report, Route route, Delivery delivery);
    Report *firstOpen(Route route);
    Programs &programsOf(Route route) { return route == Route::hooks ? hooks_ : agent_; }
    std::vector<Programs::Command> commandsOf(Route route);

    State &state_;
    StateFile &file_;
    Programs::Command agentCommand_;
    Say say_;
    Config config_;
    bool wanted_[kRoutes] = {};
    std::optional<int64_t> retryAt_[kRoutes];
    // The event whose programs run: its number, and its letter before they were started.
    struct InHand {
        uint64_t number = 0;
        Delivery before = Delivery::waiting;
    };
    InHand inHand_[kRoutes];
    Programs hooks_;
    Programs agent_;
};

} // namespace tool::monitor
