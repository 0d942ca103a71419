// SPDX-License-Identifier: Apache-2.0
// A simulated machine whose files the fuzzer writes. One exists per process.
#pragma once

#include "sim/sim.h"

#include <string_view>

namespace fuzz {

class FuzzedMachine {
public:
    explicit FuzzedMachine(const char *description = "{}") : machine_(description) {}
    // Replaces whatever is at that path by a file.
    void file(const char *path, std::string_view content) { machine_.write(path, content); }
    void link(const char *path, std::string_view target);
    void remove(std::string_view path) { machine_.remove(path); }
    // Requires that the provider has closed everything.
    void requireAllClosed() const;

private:
    sim::Machine machine_;
};

// Whether a text can be the name of a file.
bool isFileName(std::string_view text);

} // namespace fuzz
