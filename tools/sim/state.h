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

inline constexpr size_t kLongestLog = 1 << 17; // entries; bound for tests that never call forgetCommands

struct MachineState {
    explicit MachineState(const std::string &stateDirectory = "") : directory(stateDirectory), root(directory.path()) {}

    MachineDirectory directory;
    const std::string root; // real directory of the machine's "/"
    bool logging = true;

    // Guarded by model():
    Description description;
    std::vector<std::unique_ptr<Device>> devices; // all so far: one that was removed may still be open
    std::vector<Device *> present;
    std::map<std::string, Device *> nodes; // "/dev/sda", "/dev/sg0" to their devices
    Tree tree;                             // files of the description
    std::deque<Command> log;
    std::deque<Opening> openings;
    uint64_t clockMs = 0; // the machine's own clock; only tests advance it
    unsigned unknownIoctls = 0;
    unsigned requests = 0;  // with a known ioctl
    unsigned toDevices = 0; // of these the commands that the device itself has to answer, not the kernel
};

// The one machine, or null while the real one is seen. A former machine stays in memory: a thread may still be in a
// call on it.
MachineState *currentMachine();
void setCurrentMachine(std::unique_ptr<MachineState> machine);

// Makes a machine in a directory of its own. Throws std::runtime_error, leaving nothing behind.
std::unique_ptr<MachineState> makeMachine(Description description, const std::string &stateDirectory = "");
// Changes files and devices of a machine to a new description. Throws std::runtime_error; the machine is then as
// before.
void rebuild(MachineState &machine, Description description);

// Guards the machine and the state of its devices; held for short times only. The condition variable is notified when
// devices are removed, which ends their hanging requests.
std::mutex &model();
std::condition_variable &modelChanged();

// The device at a real path, or null if there is none.
Device *deviceAt(const char *realPath);
// Writes what sysfs shows of a device and requests change. Needs the lock.
void showRuntimeStatus(const MachineState &machine, const Device &device);
void showStatistics(const MachineState &machine, const Device &device);
// Logs that the node at a real path is opened with these flags of open(). Returns its error, or 0.
int beginOpening(Device &device, const char *realPath, int flags);
std::string nodeNameOf(const Device &device); // "sda"

// Lets the machine of a preloaded process follow its description file. Called where a file or directory is opened.
void followDescription();
// A descriptor that becomes readable when the description file of a preloaded process changes, or -1. Then the second
// function is to be called.
int descriptionWatch();
void descriptionChanged();

} // namespace sim
