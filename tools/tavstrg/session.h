// SPDX-License-Identifier: Apache-2.0
// The provider, loaded into an embedded broker on the real or a simulated machine, for as long as it is asked.
#pragma once

#include "broker/broker.h"

#include <csignal>
#include <memory>
#include <string>
#include <vector>

namespace sim {
class Machine;
}

namespace tool {

// Where a provider is looked for when none was named, best first. toolPath is the tool's own path.
std::vector<std::string> providerCandidates(const std::string &toolPath);

// While one lives, signals that would end the tool wait, so that nothing of a simulated machine is left behind.
class SignalsWait {
public:
    SignalsWait();
    ~SignalsWait();
    SignalsWait(const SignalsWait &) = delete;
    SignalsWait &operator=(const SignalsWait &) = delete;

private:
    sigset_t before_;
};

class Session {
public:
    struct Options {
        std::string provider; // empty: the first candidate that exists
        std::string machine;  // file of a simulated machine; empty: the real one
        bool serviceMode = false;
        bool agentLibraries = false; // on a simulated machine: the development libraries are its agent's in any case
    };

    // Throws Failure when there is no provider, it does not load, or the machine cannot be made.
    explicit Session(const Options &options);
    // Stops the broker, as the provider expects before it is unloaded, and removes the simulated machine. Signals that
    // would end the tool wait until then, so that no segment and no directory is left behind.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    broker::Broker &broker();

    // Stops the broker and loads the provider afresh, on the same machine: it goes on from what it saved.
    void reload(bool serviceMode);

    // The simulated machine becomes what the description, which is JSON, says. Throws Failure; it then stays as it was.
    void changeMachine(const std::string &description);

private:
    void load(bool serviceMode);

    SignalsWait signals_;
    Options options_;
    std::string provider_; // absolute
    std::unique_ptr<sim::Machine> machine_;
    std::unique_ptr<broker::Broker> broker_;
};

// The simulated machine that the options name; null when they name none. Throws Failure.
std::unique_ptr<sim::Machine> makeMachine(const Session::Options &options);

} // namespace tool
