// SPDX-License-Identifier: Apache-2.0
// The command line as the library that parses it leaves it, before names are looked up and values are checked together.
#pragma once

#include "tavstrg/arguments.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

struct RawArguments {
    Arguments arguments; // what needs no further look
    std::string index;   // get; also empty if it was not given
    std::vector<std::string> assignments;
    std::string file;    // record, report: the file to write; "-": standard output
    std::string columns; // disks: separated by commas
    bool noHeader = false;
    std::string colour;
};

// Declares all options and commands to the library, with their help. While it parses, it writes into raw, which must
// outlive app.
void describeCommandLine(CLI::App &app, RawArguments &raw);

// The command that was parsed. At least one must have been.
Command commandOf(const CLI::App &app);

} // namespace tool
