// SPDX-License-Identifier: Apache-2.0
// An event as the agent gets it. Pure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tool::monitor {

struct AgentEvent {
    uint32_t id = 0;                  // 0: the fields are those of no event
    std::vector<std::string> strings; // place; model; serial number; kernel name; number; and what there is to say
};

// From the fields of an event, which "field" returns by their names, empty for those that are not there.
AgentEvent agentEvent(const std::function<std::string(const char *)> &field);

} // namespace tool::monitor
