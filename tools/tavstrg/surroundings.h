// SPDX-License-Identifier: Apache-2.0
// What a command's process sees: the real machine or a simulated one, the agent's files or a private copy of them, and
// the agent's libraries or the tool's own. Made before the process that asks is started, and removed after its end.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/private_copy.h"
#include "tavstrg/trace_capture.h"

#include <csignal>
#include <memory>
#include <optional>
#include <string>

namespace sim {
class Machine;
}

namespace tool {

// While one exists, signals that would end the tool are blocked, so that nothing is left behind.
class SignalsWait {
public:
    SignalsWait();
    ~SignalsWait();
    SignalsWait(const SignalsWait &) = delete;
    SignalsWait &operator=(const SignalsWait &) = delete;

private:
    sigset_t before_;
};

// How a command uses the provider.
enum class Use {
    none,  // it does not load it
    read,  // in a private copy; alerts go nowhere
    write, // it changes what is saved
    watch  // it runs the monitoring thread; alerts go to the agent's library
};

class Surroundings {
public:
    // Throws Failure if the machine or the private copy cannot be made.
    Surroundings(const Arguments &arguments, Use use);
    ~Surroundings();
    Surroundings(const Surroundings &) = delete;
    Surroundings &operator=(const Surroundings &) = delete;

    // The simulated machine becomes what the description, which is JSON, says. Throws Failure; the machine is then
    // unchanged.
    void changeMachine(const std::string &description);

    // The saved state that the provider of this process writes.
    std::string stateFile() const;

private:
    std::unique_ptr<sim::Machine> makeMachine() const;
    void redirect();

    const std::string machineFile_;
    const std::string stateDirectory_;
    const Use use_;
    std::unique_ptr<sim::Machine> machine_;
    std::optional<TraceCapture> trace_;
    std::optional<PrivateCopy> copy_;
};

} // namespace tool
