// SPDX-License-Identifier: Apache-2.0
// Helpers for scenarios: the shared object as it ships, in the embedded broker, on a simulated machine.
#pragma once

#include "broker/broker.h"
#include "sim/sim.h"
#include "support/machines.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace scenario {

// The provider as it ships.
std::string providerFile();

// Text of examples/machines/<name>.json.
std::string exampleMachine(const std::string &name);

// Names of the twelve classes.
const std::vector<std::string> &allClasses();
// The nine with the key Index.
const std::vector<std::string> &indexedClasses();

// A broker with the provider loaded, stopped by the destructor. Throws if the provider does not load.
class Server {
public:
    explicit Server(broker::Options options = {});
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    broker::Broker &operator*() { return broker_; }
    broker::Broker *operator->() { return &broker_; }

private:
    broker::Broker broker_;
};

// Everything a client can see now, as JSON: per class its instances' properties, or rc and message of the refusal.
nlohmann::json everythingOf(broker::Broker &broker);

// Numbers of instances per class, from the totals that the provider publishes.
std::vector<uint64_t> totalsOf(broker::Broker &broker);

// Adds a failure for each broker object, block, descriptor and segment that a stopped provider left.
void expectNothingLeft(broker::Broker &broker);

} // namespace scenario
