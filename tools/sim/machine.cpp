// SPDX-License-Identifier: Apache-2.0
#include "sim/descriptors.h"
#include "sim/paths.h"
#include "sim/state.h"
#include "sim/thread.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace sim {

namespace {

constinit std::atomic<MachineState *> current{nullptr};

// Machines and devices that are gone stay reachable: another thread may still be in a call on them.
std::vector<MachineState *> &graveyard()
{
    static auto *machines = new std::vector<MachineState *>;
    return *machines;
}

std::vector<DeviceDescription> allDevices(const Description &description)
{
    std::vector<DeviceDescription> all = description.devices;
    for (const IdeDrive &drive : description.drives) {
        all.push_back(drive.device);
    }
    return all;
}

// The devices that a description wants, in its order: those that are there already, brought up to date, and new ones.
std::vector<Device *> devicesOf(const MachineState &machine, const Description &description)
{
    std::vector<Device *> devices;
    for (const DeviceDescription &wanted : allDevices(description)) {
        const auto old = std::find_if(machine.present.begin(), machine.present.end(),
                                      [&](const Device *device) { return isSameDevice(device->is, wanted); });
        Device *device = old != machine.present.end() ? *old : new Device;
        describeDevice(*device, wanted, description.seed);
        device->oldKernel = kernelNumber(description.kernel) < 2006000;
        devices.push_back(device);
    }
    return devices;
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
        if (description.libraries && access(path.c_str(), R_OK) != 0) {
            throw std::runtime_error("there is no " + path);
        }
    }
}

void linkLibraries(const MachineState &machine, const Description &description)
{
    if (!description.libraries && !machine.description.libraries) {
        return; // what a test has put there itself stays
    }
    for (const char *name : kLibraries) {
        const std::string at = machine.root + std::string(kAgentRoot) + "/lib/" + name;
        std::error_code ignored;
        std::filesystem::remove(at, ignored);
        if (description.libraries) {
            putLink(at, libraryDirectory(description) + "/" + name);
        }
    }
}

void removeUnwanted(const MachineState &machine, const Description &description)
{
    for (const auto &[path, content] : description.files) {
        if (!content) {
            std::error_code ignored;
            std::filesystem::remove_all(machine.root + path, ignored);
        }
    }
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
        return new std::mutex; // outlives every destructor that may still send a command
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

void setCurrentMachine(MachineState *machine)
{
    MachineState *before = current.exchange(machine);
    if (before == nullptr || before == machine) {
        return;
    }
    {
        const std::lock_guard held(model());
        for (Device *device : before->present) {
            device->gone = true;
        }
        before->log.clear();
        before->tree.clear();
        graveyard().push_back(before);
    }
    modelChanged().notify_all();
    forgetMachineDescriptors();
}

Device *deviceAt(const char *translated)
{
    const MachineState *machine = currentMachine();
    if (machine == nullptr || translated == nullptr || !std::string_view(translated).starts_with(machine->root)) {
        return nullptr;
    }
    const std::string path = plainPath(translated + machine->root.size());
    const std::lock_guard held(model());
    const auto found = machine->nodes.find(path);
    return found == machine->nodes.end() ? nullptr : found->second;
}

int openErrorOf(const Device &device)
{
    const std::lock_guard held(model());
    return device.is.openError;
}

std::string nodeNameOf(const Device &device)
{
    const std::lock_guard held(model());
    return device.name.substr(5); // without "/dev/"
}

void rebuild(MachineState &machine, Description description)
{
    checkLibraries(description);
    const Tree tree = treeOf(description);
    std::vector<Device *> wanted;
    std::map<std::string, Device *> nodes;
    { // A node has its device from its first moment to its last.
        const std::lock_guard held(model());
        wanted = devicesOf(machine, description);
        for (Device *device : wanted) {
            for (const std::string &node : {device->is.node, device->is.genericNode}) {
                if (!node.empty()) {
                    nodes["/dev/" + node] = machine.nodes["/dev/" + node] = device;
                }
            }
        }
    }
    layOut(machine.root, machine.tree, tree);
    removeUnwanted(machine, description);
    linkLibraries(machine, description);
    {
        const std::lock_guard held(model());
        for (Device *device : machine.present) {
            device->gone = std::find(wanted.begin(), wanted.end(), device) == wanted.end();
            if (device->gone) {
                machine.removed.push_back(device);
            }
        }
        machine.nodes = std::move(nodes);
        machine.present = std::move(wanted);
        machine.description = std::move(description);
        machine.tree = tree;
    }
    modelChanged().notify_all();
}

// ---- sim.h ----

Machine::Machine(const std::string &json, const std::string &stateDirectory)
{
    const Inside inside;
    Description description = parseDescription(json);
    auto fresh = std::make_unique<MachineState>(stateDirectory);
    try {
        rebuild(*fresh, std::move(description));
    } catch (...) {
        fresh->directory.remove();
        throw;
    }
    setCurrentMachine(fresh.release());
}

std::string Machine::readFile(const std::string &path)
{
    const Inside inside;
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return text.str();
}

Machine::~Machine()
{
    const Inside inside;
    if (MachineState *machine = currentMachine()) {
        setCurrentMachine(nullptr);
        machine->directory.remove();
    }
}

void Machine::change(const std::string &json)
{
    const Inside inside;
    MachineState &machine = *currentMachine();
    rebuild(machine, parseDescription(json, machine.description.devices));
}

std::string Machine::where(std::string_view path) const
{
    return currentMachine()->root + plainPath(path);
}

void Machine::write(std::string_view path, std::string_view content)
{
    const Inside inside;
    putFile(where(path), std::string(content));
}

std::string Machine::read(std::string_view path) const
{
    const Inside inside;
    std::ifstream file(where(path));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool Machine::exists(std::string_view path) const
{
    const Inside inside;
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(where(path), error));
}

void Machine::remove(std::string_view path)
{
    const Inside inside;
    std::error_code ignored;
    std::filesystem::remove_all(where(path), ignored);
}

void Machine::makeDirectory(std::string_view path)
{
    const Inside inside;
    putDirectory(where(path));
}

void Machine::link(std::string_view path, std::string_view target)
{
    const Inside inside;
    const std::string plain = target.starts_with('/') ? plainPath(target) : std::string();
    putLink(where(path), !plain.empty() && isMachinePath(plain) ? where(plain) : std::string(target));
}

std::vector<Command> Machine::commands() const
{
    const std::lock_guard held(model());
    const std::deque<Command> &log = currentMachine()->log;
    return {log.begin(), log.end()};
}

void Machine::forgetCommands()
{
    const std::lock_guard held(model());
    currentMachine()->log.clear();
}

unsigned Machine::unknownIoctls() const
{
    const std::lock_guard held(model());
    return currentMachine()->unknownIoctls;
}

bool Machine::smartSwitchedOn(std::string_view node) const
{
    const std::lock_guard held(model());
    const auto found = currentMachine()->nodes.find(std::string(node));
    if (found == currentMachine()->nodes.end()) {
        return false;
    }
    const Device &device = *found->second;
    return device.is.ata ? device.is.smart.supported && device.smartEnabled
                         : device.is.exceptions.supported && !device.exceptions.dexcpt;
}

int Machine::openDescriptors() const
{
    return openOfMachine();
}

} // namespace sim
