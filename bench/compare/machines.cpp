// SPDX-License-Identifier: Apache-2.0
#include "compare/machines.h"

#include <nlohmann/json.hpp>

namespace compare {

namespace {

constexpr int kDisksPerHost = 8;

// As the kernel names the disks: sda to sdz, sdaa, ...
std::string nodeName(int number)
{
    std::string letters;
    for (int rest = number + 1; rest > 0; rest = (rest - 1) / 26) {
        letters.insert(letters.begin(), static_cast<char>('a' + (rest - 1) % 26));
    }
    return "sd" + letters;
}

// What a common disk counts.
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
    nlohmann::json device = {
        {"id", number % kDisksPerHost}, {"ata", true},
        {"node", disk.node.substr(5)},  {"model", disk.model},
        {"serial", disk.serial},        {"revision", "FW01"},
        {"sectors", 7814037168ULL},     {"smart", {{"attributes", attributes()}, {"failing", failing}}}};
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

std::string machineOf(int first, int number, int latencyMs, int failing)
{
    nlohmann::json hosts = nlohmann::json::array();
    int host = -1;
    for (int i = first; i < first + number; ++i) {
        if (i / kDisksPerHost != host) {
            host = i / kDisksPerHost;
            hosts.push_back({{"number", host}, {"driver", "ahci"}, {"devices", nlohmann::json::array()}});
        }
        hosts.back()["devices"].push_back(deviceOf(i, latencyMs, i == failing));
    }
    return nlohmann::json{{"hosts", hosts}, {"files", {{"storage.inf", "ahci\n"}}}}.dump();
}

} // namespace compare
