// SPDX-License-Identifier: Apache-2.0
// A saved-state file, read as far as it is whole, also if it is damaged.
#pragma once

#include "broker/broker.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The records of one class, as instances with one property for each field.
struct StateBlock {
    std::string className;
    size_t offset = 0;   // bytes from the start of the file
    size_t expected = 0; // records that the file announces
    std::vector<broker::Instance> records;
};

struct SavedState {
    std::string version;            // "1.0.0.1"; empty if the first line is unknown
    std::vector<StateBlock> blocks; // in the file's order, whole records only
    std::string damage;             // where the file breaks and how; empty when it is whole
    size_t trailing = 0;            // bytes behind the last block, which the provider ignores
};

SavedState parseSavedState(std::string_view bytes);

// The file's bytes. Throws Failure when it cannot be read or is larger than any state can be.
std::string readStateFile(const std::string &path);

// width: columns of the terminal, 0 for lines as long as they are.
std::string savedStateText(const SavedState &state, size_t width);
std::string savedStateJson(const SavedState &state);

} // namespace tool
