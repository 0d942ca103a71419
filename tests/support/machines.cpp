// SPDX-License-Identifier: Apache-2.0
#include "support/machines.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace machines {

json ataDisk(const std::string &model, const std::string &serial, uint64_t sizeBytes)
{
    return {{"ata", true}, {"model", model}, {"serial", serial}, {"revision", "FW01"}, {"sizeBytes", sizeBytes}};
}

json ataDisk(size_t n)
{
    return ataDisk("MODEL-" + std::to_string(1000 + n), "SER" + std::to_string(100000 + n), (uint64_t{n} + 1) << 30);
}

json withoutDevices()
{
    return {{"kernel", "6.1.0-56-amd64"}, {"hosts", json::array()}, {"files", {{"storage.inf", "ahci\n"}}}};
}

void addHost(json &machine, size_t number)
{
    json &hosts = machine["hosts"];
    if (hosts.empty() || hosts.back()["number"] != number) {
        hosts.push_back({{"number", number}, {"driver", "ahci"}, {"devices", json::array()}});
    }
}

void attach(json &machine, size_t place, json device, size_t perHost)
{
    addHost(machine, place / perHost);
    device["id"] = place % perHost;
    machine["hosts"].back()["devices"].push_back(std::move(device));
}

json withDevices(std::vector<json> devices, size_t perHost)
{
    json machine = withoutDevices();
    for (size_t place = 0; place < devices.size(); ++place) {
        attach(machine, place, std::move(devices[place]), perHost);
    }
    return machine;
}

json disks(size_t n, size_t perHost)
{
    json machine = withoutDevices();
    for (size_t i = 0; i < n; ++i) {
        attach(machine, i, ataDisk(i), perHost);
    }
    return machine;
}

void forEachDevice(json &machine, const std::function<void(json &device)> &change)
{
    for (json &host : machine["hosts"]) {
        if (host.contains("devices")) {
            for (json &device : host["devices"]) {
                change(device);
            }
        }
    }
}

json &deviceAt(json &machine, size_t position)
{
    json *found = nullptr;
    size_t next = 0;
    forEachDevice(machine, [&](json &device) {
        if (next++ == position) {
            found = &device;
        }
    });
    if (found == nullptr) {
        throw std::out_of_range("no device at position " + std::to_string(position));
    }
    return *found;
}

std::string text(const json &machine)
{
    return machine.dump();
}

std::string ofDisks(size_t n, size_t perHost)
{
    return text(disks(n, perHost));
}

std::string ofEqualDisks(size_t n, const std::string &firstModel)
{
    std::vector<json> disks;
    for (size_t i = 0; i < n; ++i) {
        const std::string number = std::to_string(i);
        disks.push_back(ataDisk(i == 0 ? firstModel : "MODEL-" + number, "SERIAL-" + number, uint64_t{1} << 30));
    }
    return text(withDevices(std::move(disks), n + 1));
}

std::string ofOneDevice(const std::string &fields, unsigned hostNumber)
{
    json host = {{"number", hostNumber}, {"driver", "ahci"}, {"devices", json::array()}};
    host["devices"].push_back(json::parse("{" + fields + "}"));
    json machine;
    machine["hosts"].push_back(std::move(host));
    return text(machine);
}

std::string ofOneIdeDrive(const std::string &fields)
{
    json drive = json::parse("{" + fields + "}");
    drive["name"] = "hda";
    json machine;
    machine["ide"]["drives"].push_back(std::move(drive));
    return text(machine);
}

} // namespace machines
