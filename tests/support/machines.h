// SPDX-License-Identifier: Apache-2.0
// Builders of simulated machines (docs/SIMULATOR.md) for tests and benchmarks. A description is a JSON value until
// text() turns it into what sim::Machine takes; what the builders do not set, the caller sets in the value. Callers
// that do so include <nlohmann/json.hpp>; the others are spared it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace machines {

using nlohmann::json;

constexpr size_t kDevicesPerHost = 8;

// An ATA disk with firmware "FW01".
json ataDisk(const std::string &model, const std::string &serial, uint64_t sizeBytes);
// Disk n of a machine of similar disks: "MODEL-1000" and up, "SER100000" and up, n + 1 GiB.
json ataDisk(size_t n);

// A machine without devices, on which the driver ahci is managed (storage.inf).
json withoutDevices();
// Makes sure that a host adapter exists. Numbers ascend from call to call.
void addHost(json &machine, size_t number);
// Puts a device at a place counted through the host adapters: place 9 of 8 per host is target 1 of host adapter 1,
// whose driver is ahci. Places are filled in ascending order.
void attach(json &machine, size_t place, json device, size_t perHost = kDevicesPerHost);
// A machine with these devices, from place 0 on.
json withDevices(std::vector<json> devices, size_t perHost = kDevicesPerHost);

// n disks of ataDisk().
json disks(size_t n, size_t perHost = kDevicesPerHost);

// Calls the function with each device of each host adapter, in their order.
void forEachDevice(json &machine, const std::function<void(json &device)> &change);
// The device at that position; throws std::out_of_range if there are fewer.
json &deviceAt(json &machine, size_t position);

std::string text(const json &machine);

// Whole machines, as text. disks(n):
std::string ofDisks(size_t n, size_t perHost = kDevicesPerHost);
// n disks of 1 GiB on one host adapter: "MODEL-0" and up, "SERIAL-0" and up. The first one's model can be another.
std::string ofEqualDisks(size_t n, const std::string &firstModel = "MODEL-0");
// One device on a host adapter of ahci, unmanaged: fields are the members of its description, as JSON text.
std::string ofOneDevice(const std::string &fields, unsigned hostNumber = 0);
// One disk of the old IDE driver, hda; fields as above.
std::string ofOneIdeDrive(const std::string &fields);

} // namespace machines
