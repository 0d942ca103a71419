// SPDX-License-Identifier: Apache-2.0
// The machine that the process sees.
#pragma once

#include "sim/api.h"
#include "sim/description.h"
#include "sim/device.h"
#include "sim/directory.h"
#include "sim/tree.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

struct MachineState {
    explicit MachineState(const std::string &stateDirectory = "") : directory(stateDirectory), root(directory.path()) {}

    MachineDirectory directory;
    const std::string root; // where the machine's paths lie
    bool logging = true;

    // Guarded by model():
    Description description;
    std::map<std::string, Device *> nodes; // "/dev/sda", "/dev/sg0" to the device behind
    std::vector<Device *> present;
    std::vector<Device *> removed; // somebody may still have one open
    Tree tree;                     // what the description put there
    std::deque<Command> log;
    unsigned unknownIoctls = 0;
    unsigned requests = 0;  // that were known
    unsigned toDevices = 0; // of these the commands that the device itself has to answer, not the kernel
};

// The one machine, or null: the real one is seen. A machine that is gone stays in memory, so whoever still holds it
// can.
MachineState *currentMachine();
void setCurrentMachine(MachineState *machine);

// Guards the machine and the state of its devices; held for short times only. A condition variable wakes whoever waits
// for a device (a hang ends with the device).
std::mutex &model();
std::condition_variable &modelChanged();

// Makes the machine what the description says, in its directory and its devices.
void rebuild(MachineState &machine, Description description);
// The device behind a path as the C library sees it; null for any other.
Device *deviceAt(const char *translated);
int openErrorOf(const Device &device);        // 0: it can be opened
std::string nodeNameOf(const Device &device); // "sda"

// The preloaded machine follows its description file: called where a directory or a file is opened.
void followDescription();

} // namespace sim
