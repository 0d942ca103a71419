// SPDX-License-Identifier: Apache-2.0
// The provider, loaded into an embedded broker for as long as it is asked.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/surroundings.h"

#include "broker/broker.h"

#include <memory>
#include <string>
#include <vector>

namespace tool {

// Where a provider is looked for if none is named, best first. toolPath is the tool's own path.
std::vector<std::string> providerCandidates(const std::string &toolPath);

class Session {
public:
    // The shared object is the one that the arguments name, else the first candidate that exists. Throws Failure if
    // there is none or it does not load.
    Session(Surroundings &surroundings, const Arguments &arguments, bool serviceMode);
    // Stops the broker, as the provider expects before it is unloaded.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    broker::Broker &broker() { return *broker_; }
    Surroundings &surroundings() { return surroundings_; }

    // Stops the broker and loads the provider again, on the same machine: it continues from what it saved.
    void reload(bool serviceMode);

    // The simulated machine becomes what the description, which is JSON, says. Throws Failure; the machine is then
    // unchanged.
    void changeMachine(const std::string &description) { surroundings_.changeMachine(description); }

private:
    void load(bool serviceMode);

    Surroundings &surroundings_;
    std::string provider_; // absolute
    std::unique_ptr<broker::Broker> broker_;
};

} // namespace tool
