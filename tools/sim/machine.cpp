// SPDX-License-Identifier: Apache-2.0
// The class of sim.h.
#include "sim/descriptors.h"
#include "sim/fields.h"
#include "sim/state.h"
#include "sim/thread.h"
#include "sim/uevents.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sim {

Machine::Machine(const std::string &json, const std::string &stateDirectory)
{
    const Inside inside;
    setCurrentMachine(makeMachine(parseDescription(json), stateDirectory));
}

std::string Machine::readFile(const std::string &path)
{
    const Inside inside;
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    std::string text;
    char part[16384];
    size_t length = 0;
    while (file != nullptr && text.size() <= kLongestDescription &&
           (length = std::fread(part, 1, sizeof part, file.get())) > 0) {
        text.append(part, length);
    }
    if (file == nullptr || std::ferror(file.get()) != 0) {
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    }
    checkDescription(text);
    return text;
}

void Machine::checkDescription(const std::string &text)
{
    checkBounds(text);
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

std::vector<Opening> Machine::openings() const
{
    const std::lock_guard held(model());
    const std::deque<Opening> &log = currentMachine()->openings;
    return {log.begin(), log.end()};
}

void Machine::forgetOpenings()
{
    const std::lock_guard held(model());
    currentMachine()->openings.clear();
}

unsigned Machine::unknownIoctls() const
{
    const std::lock_guard held(model());
    return currentMachine()->unknownIoctls;
}

namespace {

// Needs the lock. Null if there is no such device.
Device *deviceOfNode(std::string_view node)
{
    const auto found = currentMachine()->nodes.find(std::string(node));
    return found == currentMachine()->nodes.end() ? nullptr : found->second;
}

} // namespace

bool Machine::smartSwitchedOn(std::string_view node) const
{
    const std::lock_guard held(model());
    const Device *device = deviceOfNode(node);
    if (device == nullptr) {
        return false;
    }
    return device->is.takesAta() ? device->is.smart.supported && device->smartEnabled
                                 : device->is.exceptions.supported && !device->exceptions.dexcpt;
}

DiskPower Machine::power(std::string_view node) const
{
    constexpr const char *kNames[] = {"active", "idle", "standby", "sleep"};
    const std::lock_guard held(model());
    Device *device = deviceOfNode(node);
    if (device == nullptr) {
        return {};
    }
    settlePower(*device, currentMachine()->clockMs);
    return {kNames[static_cast<size_t>(device->power)], device->spinUps, device->resumes, device->suspended};
}

void Machine::advanceClock(double seconds)
{
    const std::lock_guard held(model());
    currentMachine()->clockMs += static_cast<uint64_t>(seconds * 1000);
}

void Machine::useDisk(std::string_view node, unsigned reads, unsigned writes)
{
    const Inside inside;
    const std::lock_guard held(model());
    Device *device = deviceOfNode(node);
    if (device == nullptr) {
        return;
    }
    wake(*device, currentMachine()->clockMs);
    device->reads += reads;
    device->writes += writes;
    showRuntimeStatus(*currentMachine(), *device);
    showStatistics(*currentMachine(), *device);
}

void Machine::hold(std::string_view node)
{
    const std::lock_guard held(model());
    if (Device *device = deviceOfNode(node)) {
        device->held = true;
    }
}

void Machine::release(std::string_view node)
{
    const std::lock_guard held(model());
    if (Device *device = deviceOfNode(node)) {
        device->held = false;
        ++device->releases;
    }
    modelChanged().notify_all();
}

unsigned Machine::waiting(std::string_view node) const
{
    const std::lock_guard held(model());
    const Device *device = deviceOfNode(node);
    return device == nullptr ? 0 : device->waiting;
}

bool Machine::awaitWaiting(std::string_view node, unsigned number, double seconds) const
{
    std::unique_lock held(model());
    const Device *device = deviceOfNode(node);
    return device != nullptr && modelChanged().wait_for(held, std::chrono::duration<double>(seconds),
                                                        [&] { return device->waiting >= number; });
}

void Machine::uevent(const std::string &action, const std::string &node, unsigned times)
{
    const Inside inside;
    const std::lock_guard held(model());
    sendBlockUevents(action, node, times, currentMachine()->tree);
}

unsigned Machine::ueventListeners() const
{
    return eventListeners();
}

int Machine::openDescriptors() const
{
    return openOfMachine();
}

} // namespace sim
