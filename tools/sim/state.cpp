// SPDX-License-Identifier: Apache-2.0
#include "sim/state.h"

#include "sim/descriptors.h"
#include "sim/device_plan.h"
#include "sim/paths.h"
#include "sim/tree_block.h"
#include "sim/uevents.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace sim {

namespace {

constinit std::atomic<MachineState *> current{nullptr};

// Never destroyed: another thread may still be in a call on a former machine.
std::vector<std::unique_ptr<MachineState>> &formerMachines()
{
    static auto *machines = new std::vector<std::unique_ptr<MachineState>>;
    return *machines;
}

void describe(const MachineState &machine, Device &device, const DeviceDescription &now, const Description &description)
{
    describeDevice(device, now, description.seed, machine.clockMs);
    device.oldKernel = kernelNumber(description.kernel) < 2006000;
}

void addNodes(std::map<std::string, Device *> &nodes, const DeviceDescription &description, Device *device)
{
    for (const std::string &node : {description.node, description.genericNode}) {
        if (!node.empty()) {
            nodes["/dev/" + node] = device;
        }
    }
}

// The devices of a description, in its order: the present ones that stay, not yet changed, and new ones. From here on
// the new ones answer, so that a node has its device from the first moment. Needs the lock.
std::vector<Device *> admitDevices(MachineState &machine, const Description &description)
{
    std::vector<Device *> admitted;
    for (const DeviceDescription &described : description.allDevices()) {
        const auto old = std::find_if(machine.present.begin(), machine.present.end(),
                                      [&](const Device *device) { return isSameDevice(device->is, described); });
        if (old != machine.present.end()) {
            admitted.push_back(*old);
        } else {
            machine.devices.push_back(std::make_unique<Device>());
            admitted.push_back(machine.devices.back().get());
            describe(machine, *admitted.back(), described, description);
        }
        addNodes(machine.nodes, described, admitted.back());
    }
    return admitted;
}

// Makes these devices the present ones and removes all others. Needs the lock.
void setPresent(MachineState &machine, std::vector<Device *> present)
{
    machine.present = std::move(present);
    machine.nodes.clear();
    for (const std::unique_ptr<Device> &device : machine.devices) {
        device->gone = true;
    }
    for (Device *device : machine.present) {
        device->gone = false;
        addNodes(machine.nodes, device->is, device);
    }
}

std::string ownDirectory()
{
    Dl_info info{};
    if (dladdr(&current, &info) == 0 || info.dli_fname == nullptr) {
        return ".";
    }
    return std::filesystem::absolute(info.dli_fname).parent_path();
}

constexpr const char *kLibraries[] = {"libtavlog.so", "libtavalert.so"};

std::string libraryDirectory(const Description &description)
{
    return description.libraryDirectory.empty() ? ownDirectory() : description.libraryDirectory;
}

void checkLibraries(const Description &description)
{
    for (const char *name : kLibraries) {
        const std::string path = libraryDirectory(description) + "/" + name;
        std::error_code ignored;
        // Not a directory: files of a later description could be put into it through the link.
        if (description.libraries && !std::filesystem::is_regular_file(path, ignored)) {
            throw std::runtime_error("agent.libraryDirectory: there is no file " + path);
        }
    }
}

void linkLibraries(const MachineState &machine, const Description &description)
{
    if (!description.libraries && !machine.description.libraries) {
        return; // a library that a test has put there stays
    }
    for (const char *name : kLibraries) {
        const std::string link = realPath(machine.root, TreePath(kAgentRoot) / "lib" / name);
        std::error_code ignored;
        std::filesystem::remove(link, ignored);
        if (description.libraries) {
            putLink(link, libraryDirectory(description) + "/" + name);
        }
    }
}

void removeUnwanted(const MachineState &machine, const Description &description)
{
    for (const auto &[path, content] : description.files) {
        if (!content) {
            std::error_code ignored;
            std::filesystem::remove_all(realPath(machine.root, path), ignored);
        }
    }
}

// Names of devices that are no longer the same. Nothing if no one listens to events.
std::set<std::string> replacedNames(const std::vector<DeviceDescription> &before,
                                    const std::vector<DeviceDescription> &now)
{
    std::set<std::string> names;
    if (eventListeners() == 0) {
        return names;
    }
    for (const DeviceDescription &device : before) {
        if (std::none_of(now.begin(), now.end(),
                         [&](const DeviceDescription &other) { return isSameDevice(device, other); })) {
            names.insert({device.bus == Bus::scsi ? device.address() : "", device.node});
        }
    }
    return names;
}

// Undoes a change that failed while its tree was written.
void takeBack(MachineState &machine, const Tree &tree)
{
    try {
        layOut(machine.root, tree, machine.tree);
    } catch (const std::runtime_error &) { // NOLINT(bugprone-empty-catch): the first error is the one to report
    }
    const std::lock_guard held(model());
    setPresent(machine, machine.present);
}

void lockBeforeFork()
{
    model().lock();
}

void unlockAfterFork()
{
    model().unlock();
}

} // namespace

std::mutex &model()
{
    static std::mutex *mutex = [] {
        pthread_atfork(lockBeforeFork, unlockAfterFork, unlockAfterFork);
        return new std::mutex; // never destroyed: destructors of other objects may still send commands
    }();
    return *mutex;
}

std::condition_variable &modelChanged()
{
    static auto *condition = new std::condition_variable;
    return *condition;
}

MachineState *currentMachine()
{
    return current.load(std::memory_order_acquire);
}

void setCurrentMachine(std::unique_ptr<MachineState> machine)
{
    std::unique_ptr<MachineState> before(current.exchange(machine.release()));
    if (before == nullptr) {
        return;
    }
    {
        const std::lock_guard held(model());
        setPresent(*before, {});
        before->log.clear();
        before->openings.clear();
        before->tree.clear();
        formerMachines().push_back(std::move(before));
    }
    modelChanged().notify_all();
    forgetMachineDescriptors();
}

std::unique_ptr<MachineState> makeMachine(Description description, const std::string &stateDirectory)
{
    auto machine = std::make_unique<MachineState>(stateDirectory);
    try {
        rebuild(*machine, std::move(description));
    } catch (...) {
        machine->directory.remove();
        throw;
    }
    return machine;
}

void rebuild(MachineState &machine, Description description)
{
    checkLibraries(description);
    const Tree tree = treeOf(description);
    Tree before;
    std::set<std::string> replaced;
    std::vector<Device *> admitted;
    {
        const std::lock_guard held(model());
        machine.clockMs = std::max(machine.clockMs, static_cast<uint64_t>(description.clock * 1000));
        admitted = admitDevices(machine, description);
    }
    try {
        layOut(machine.root, machine.tree, tree);
        removeUnwanted(machine, description);
        linkLibraries(machine, description);
    } catch (...) {
        takeBack(machine, tree);
        throw;
    }
    {
        const std::lock_guard held(model());
        const std::vector<DeviceDescription> all = description.allDevices();
        for (size_t i = 0; i < all.size(); ++i) {
            describe(machine, *admitted[i], all[i], description);
        }
        setPresent(machine, std::move(admitted));
        replaced = replacedNames(machine.description.allDevices(), all);
        machine.description = std::move(description);
        before = std::exchange(machine.tree, tree);
    }
    modelChanged().notify_all();
    sendDifferences(before, tree, replaced);
}

Device *deviceAt(const char *realPath)
{
    const MachineState *machine = currentMachine();
    if (machine == nullptr || realPath == nullptr || !std::string_view(realPath).starts_with(machine->root)) {
        return nullptr;
    }
    const std::string path = plainPath(realPath + machine->root.size());
    const std::lock_guard held(model());
    const auto found = machine->nodes.find(path);
    return found == machine->nodes.end() ? nullptr : found->second;
}

int beginOpening(Device &device, const char *realPath, int flags)
{
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState); // opening a disk that hangs cannot be cancelled
    int error = 0;
    {
        std::unique_lock held(model());
        MachineState *machine = currentMachine();
        const bool forWriting = (flags & O_ACCMODE) != O_RDONLY;
        const Plan plan = planFor(device, {Kind::open, false, false});
        error = device.is.openError != 0 || !forWriting ? device.is.openError : device.is.writeOpenError;
        error = error == 0 ? plan.failure.errorNumber : error;
        if (machine != nullptr && machine->logging) {
            machine->openings.push_back({plainPath(realPath + machine->root.size()), flags, error});
            if (machine->openings.size() > kLongestLog) {
                machine->openings.pop_front();
            }
        }
        waitOut(held, device, plan);
        error = device.gone ? ENXIO : error;
    }
    pthread_setcancelstate(cancelState, nullptr);
    return error;
}

namespace {

void show(const std::string &path, const std::string &text)
{
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        return;
    }
    try {
        putFile(path, text, 0444);
    } catch (const std::runtime_error &) { // NOLINT(bugprone-empty-catch): the file then shows what it did before
    }
}

} // namespace

void showRuntimeStatus(const MachineState &machine, const Device &device)
{
    show(machine.root + "/sys/bus/scsi/devices/" + device.is.address() + "/power/runtime_status",
         device.suspended ? "suspended\n" : "active\n");
}

void showStatistics(const MachineState &machine, const Device &device)
{
    show(machine.root + "/sys/block/" + device.is.node + "/stat", statText(device.reads, device.writes));
}

std::string nodeNameOf(const Device &device)
{
    const std::lock_guard held(model());
    return device.name.substr(5); // without "/dev/"
}

} // namespace sim
