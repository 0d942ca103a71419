// SPDX-License-Identifier: Apache-2.0
#include "compare/machines.h"

#include "support/machines.h"

#include <nlohmann/json.hpp>

namespace compare {

namespace {

constexpr uint64_t kDiskBytes = 7814037168ULL * 512;

// As the kernel names the disks: sda to sdz, sdaa, ...
std::string nodeName(int number)
{
    std::string letters;
    for (int rest = number + 1; rest > 0; rest = (rest - 1) / 26) {
        letters.insert(letters.begin(), static_cast<char>('a' + (rest - 1) % 26));
    }
    return "sd" + letters;
}

// The attributes of a common disk.
nlohmann::json attributes()
{
    nlohmann::json list = nlohmann::json::array();
    for (const int id : {1, 3, 4, 5, 7, 9, 10, 12, 183, 184, 187, 188, 189, 190, 194, 197, 198, 199}) {
        nlohmann::json attribute = {{"id", id}, {"flags", 50}, {"current", 100}, {"worst", 100}};
        if (id == 5) {
            attribute["threshold"] = kReallocatedThreshold;
            attribute["flags"] = 51;
        } else if (id == 9) {
            attribute["raw"] = {kPowerOnHours & 0xFF, kPowerOnHours >> 8};
        }
        list.push_back(attribute);
    }
    return list;
}

nlohmann::json deviceOf(int number, int latencyMs, bool failing)
{
    const Disk disk = diskOf(number);
    nlohmann::json device = machines::ataDisk(disk.model, disk.serial, kDiskBytes);
    device["node"] = disk.node.substr(5);
    device["smart"] = {{"attributes", attributes()}, {"failing", failing}};
    if (latencyMs > 0) {
        device["faults"] = {{{"on", "ata"}, {"delayMs", latencyMs}}};
    }
    return device;
}

} // namespace

Disk diskOf(int number)
{
    return {"/dev/" + nodeName(number), "NORDWIND NW4000", "NW" + std::to_string(100000 + number)};
}

std::string machineOf(int first, int number, int perHost, int latencyMs, int failing)
{
    nlohmann::json machine = machines::withoutDevices();
    machine.erase("kernel");
    for (int i = first; i < first + number; ++i) {
        machines::attach(machine, static_cast<size_t>(i), deviceOf(i, latencyMs, i == failing),
                         static_cast<size_t>(perHost));
    }
    return machines::text(machine);
}

std::string withOptions(const std::string &machine, const std::string &options)
{
    if (options.empty()) {
        return machine;
    }
    nlohmann::json changed = nlohmann::json::parse(machine);
    changed["files"]["options.inf"] = options + "\n";
    return machines::text(changed);
}

} // namespace compare
