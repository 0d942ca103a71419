// SPDX-License-Identifier: Apache-2.0
// The commands: ask, and make what is to be printed.
#pragma once

#include "tavstrg/arguments.h"
#include "tavstrg/text.h"

#include <string>

namespace tool {

struct Outcome {
    int status = kDone;
    std::string output; // for standard output
    std::string error; // for standard error, one line (check: one a problem) without the program's name; empty when all
                       // went well
    int cimStatus = 0; // what the provider refused a request with, when it did
};

// But for watch, nothing is printed while the provider is loaded: a reader that goes away must not keep it from being
// stopped.
Outcome run(const Arguments &arguments, const TextStyle &style);

} // namespace tool
