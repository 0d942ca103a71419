// SPDX-License-Identifier: Apache-2.0
// Many clients at once outside service mode: which requests are refused, and how many collections each one saw.
#pragma once

#include "scenarios/scenario.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

namespace scenario {

struct ClientsSeen {
    size_t requests = 0;
    std::vector<std::string> refusals;
    std::vector<unsigned> collections; // begun between request and answer, per request, sorted
    size_t collectionsOfAll = 0;
};

// Lets clients send requests for the indexed classes, one after the other, until each has sent so many and the time is
// over. The provider must be outside service mode.
ClientsSeen letClientsAsk(broker::Broker &broker, size_t clients, size_t least, double seconds);

} // namespace scenario
