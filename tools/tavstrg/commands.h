// SPDX-License-Identifier: Apache-2.0
// The commands: they ask the provider and return what is to be printed.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/text.h"

#include <string>

namespace tool {

struct Outcome {
    int status = kDone;
    std::string output; // for standard output
    std::string
        error; // for standard error, one line (check: one a problem) without the program's name; empty on success
    int cimStatus = 0; // with which the provider refused a request, 0 if it refused none
};

// Except by watch, nothing is printed before all that the command made is removed: a reader that went away ends the
// process.
Outcome run(const Arguments &arguments, const TextStyle &style);

} // namespace tool
