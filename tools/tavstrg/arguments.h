// SPDX-License-Identifier: Apache-2.0
// The command line.
#pragma once

#include "tavstrg/colour.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

// Exit statuses.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

enum class Command {
    show,
    enumerate,
    get,
    call,
    classes,
    watch,
    check,
    metrics,
    dumpState,
    disks,
    disk,
    health,
    monitor,
    record,
    report
};

const char *commandName(Command command); // as it is given, and as JSON documents name it

struct MethodArgument {
    std::string name;
    std::string value;
};

struct Arguments {
    Command command = Command::show;
    bool json = false;
    bool verbose = false; // show
    bool serviceMode = false;
    ColourWhen colour = ColourWhen::automatic; // show, watch
    int cycle = 0;                             // watch: seconds between two passes; 0: as it is configured
    bool raw = false;                          // class and method names are sent as they are
    bool trace = false;                        // what the provider traces goes to standard error
    std::string machine;                       // description of a simulated machine; empty: the real one
    std::string state;                         // directory that keeps the simulated agent's state; empty: none
    std::string provider;                      // shared object; empty: it is looked for
    std::string className;                     // in its right spelling unless raw
    std::optional<std::string> index;          // get
    std::string method;                        // call
    std::vector<MethodArgument> methodArguments;
    std::string output;               // metrics, record, report: file to write; empty: standard output
    bool ofClasses = false;           // metrics: of the twelve classes instead of the disks
    std::string fromBook;             // metrics: file whose values are printed; empty: the disks are asked
    std::string file;                 // dumpState: saved-state file
    std::vector<std::string> columns; // disks: names of columns; empty: the usual ones
    std::string sort;                 // disks: column by which is sorted; empty: the kernel's order
    bool failing = false;             // disks: only those that need attention
    bool header = true;               // disks
    bool csv = false;                 // disks
    bool wide = false;                // disks: 120 columns instead of 80
    std::string disk;                 // disk: ID, node or serial number
    std::string book;         // disks, disk, health, metrics, report: file that remembers the disks; empty: none
    bool keepNames = false;   // record: serial numbers and names are not replaced
    std::string root;         // check: directory in place of the agent's root; empty: the agent's own
    std::string config;       // monitor: configuration; empty: the usual file
    bool checkConfig = false; // monitor: only the configuration is checked
    bool once = false;        // monitor: one pass
    bool sendEvent = false;   // monitor: the event in the environment goes to the agent, and nothing else is done
};

// Either arguments, or what to print and the status to exit with: help and version (kDone, for standard output), or
// what is wrong (kWrongUsage, one line without the program's name and with a hint to the help that applies, for
// standard error).
struct Parsed {
    std::optional<Arguments> arguments;
    int status = kDone;
    std::string text;
};

Parsed parseArguments(int argc, const char *const *argv);

// Where no machine is named, the variables TAVSIM_MACHINE and TAVSIM_STATE name one, as they do for every program with
// the simulator's library. They are ignored for root: what root is shown as this machine is this machine.
// Whether they named one.
bool takeEnvironment(Arguments &arguments);

} // namespace tool
