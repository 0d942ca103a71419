// SPDX-License-Identifier: Apache-2.0
#include "scenarios/generations.h"

#include "records/records.h"
#include "support/machines.h"

#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <vector>

using namespace tavstrg;

namespace scenario {

namespace {

constexpr unsigned kFirstCapacity = 1024; // MiB, of generation 0
constexpr std::string_view kVersionLine = "# Version=1.0.0.1\n";

std::string withDigits(unsigned number, size_t digits)
{
    std::string text = std::to_string(number);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

std::string modelOf(unsigned generation)
{
    return "GEN-" + withDigits(generation, 8);
}

std::string serialOf(unsigned generation, size_t disk)
{
    return withDigits(generation, 8) + "-" + std::to_string(disk);
}

std::string firmwareOf(unsigned generation)
{
    return "F" + withDigits(generation % 1000, 3);
}

// Capacities are reported in whole cylinders.
nlohmann::json oneMiBPerCylinder(unsigned generation)
{
    return {{"heads", 64}, {"sectors", 32}, {"cylinders", kFirstCapacity + generation}};
}

std::nullopt_t no(std::string &why, std::string reason)
{
    why = std::move(reason);
    return std::nullopt;
}

// Texts of one disk.
struct Disk {
    std::string model, serial, firmware;
};

std::optional<unsigned> generationOfDisks(const std::vector<Disk> &disks, std::string &why)
{
    if (disks.empty()) {
        return no(why, "no disk");
    }
    if (!disks[0].model.starts_with("GEN-")) {
        return no(why, "model [" + disks[0].model + "]");
    }
    const auto generation = static_cast<unsigned>(std::stoul(disks[0].model.substr(4)));
    if (disks.size() != disksOf(generation)) {
        return no(why, std::to_string(disks.size()) + " disks in generation " + std::to_string(generation));
    }
    std::set<std::string> serials;
    for (const Disk &disk : disks) {
        serials.insert(disk.serial);
        if (disk.model != modelOf(generation) || disk.firmware != firmwareOf(generation)) {
            return no(why, "a disk [" + disk.model + "] [" + disk.firmware + "] in generation " +
                               std::to_string(generation));
        }
    }
    for (size_t i = 0; i < disks.size(); ++i) {
        if (!serials.contains(serialOf(generation, i))) {
            return no(why, "no disk " + serialOf(generation, i));
        }
    }
    return generation;
}

std::optional<unsigned> generationOfCapacities(const std::vector<uint64_t> &capacities, std::string &why)
{
    if (capacities.empty() || capacities[0] < kFirstCapacity) {
        return no(why, "no disk, or one too small: " +
                           (capacities.empty() ? std::string("none") : std::to_string(capacities[0])));
    }
    const auto generation = static_cast<unsigned>(capacities[0] - kFirstCapacity);
    for (const uint64_t capacity : capacities) {
        if (capacity != capacities[0]) {
            return no(why, "capacities " + std::to_string(capacity) + " and " + std::to_string(capacities[0]));
        }
    }
    return capacities.size() == disksOf(generation)
               ? std::optional(generation)
               : no(why, std::to_string(capacities.size()) + " disks in generation " + std::to_string(generation));
}

std::string textOf(const broker::Instance &instance, const char *name)
{
    const broker::Value *const value = instance.find(name);
    return value == nullptr ? "" : value->toString();
}

// Removes records from the front of a saved state. Returns false if it has fewer.
template <class Rec> bool take(std::string_view &bytes, size_t count, std::vector<Rec> &records)
{
    if (bytes.size() < count * sizeof(Rec)) {
        return false;
    }
    records.resize(count);
    std::memcpy(records.data(), bytes.data(), count * sizeof(Rec));
    bytes.remove_prefix(count * sizeof(Rec));
    return true;
}

} // namespace

size_t disksOf(unsigned generation)
{
    return 1 + generation * 5 % 12;
}

std::string machineOf(unsigned generation, bool agentLibraries)
{
    nlohmann::json machine = machines::withoutDevices();
    machine["agent"]["libraries"] = agentLibraries;
    for (size_t i = 0; i < disksOf(generation); ++i) {
        nlohmann::json disk = machines::ataDisk(modelOf(generation), serialOf(generation, i),
                                                uint64_t{kFirstCapacity + generation} << 20);
        disk["revision"] = firmwareOf(generation);
        disk["geometry"] = oneMiBPerCylinder(generation);
        machines::attach(machine, i, std::move(disk));
    }
    return machines::text(machine);
}

std::optional<unsigned> generationOf(const broker::Reply &reply, std::string &why)
{
    std::vector<Disk> disks;
    std::vector<uint64_t> capacities;
    for (const broker::Instance &instance : reply.instances) {
        if (textOf(instance, "Index") != std::to_string(disks.size() + 1)) {
            return no(why, "Index " + textOf(instance, "Index"));
        }
        disks.push_back(
            {textOf(instance, "Model"), textOf(instance, "SerialNumber"), textOf(instance, "FirmwareRevision")});
        if (const std::string capacity = textOf(instance, "Capacity"); !capacity.empty()) {
            capacities.push_back(std::stoull(capacity));
        }
    }
    return capacities.empty() ? generationOfDisks(disks, why) : generationOfCapacities(capacities, why);
}

void expectGeneration(broker::Broker &broker, unsigned expected)
{
    for (const char *const name : {"TAV_StorageSCSIDevice", "TAV_StorageHardDisk"}) {
        const broker::Reply reply = broker.enumInstances(name);
        std::string why = reply.message;
        EXPECT_EQ(generationOf(reply, why), expected) << name << ": " << why;
    }
}

std::optional<unsigned> generationOf(const std::string &savedState, std::string &why)
{
    std::string_view left = savedState;
    std::vector<StrgConfRec> conf;
    std::vector<StrgTnumRec> totals;
    std::vector<StrgCtrlRec> controllers;
    std::vector<StrgScsiRec> devices;
    std::vector<StrgHddRec> hardDisks;
    if (!left.starts_with(kVersionLine)) {
        return no(why, "no version line");
    }
    left.remove_prefix(kVersionLine.size());
    if (!take(left, 1, conf) || !take(left, 1, totals)) {
        return no(why, "cut off before the totals");
    }
    const StrgTnumRec &total = totals[0];
    if (!take(left, total.ControllerTotalNumber, controllers) || !take(left, total.SCSIDeviceTotalNumber, devices) ||
        !take(left, total.HardDiskTotalNumber, hardDisks) || !left.empty()) {
        return no(why, "not as long as its totals say");
    }
    std::vector<Disk> disks;
    std::vector<uint64_t> capacities;
    for (const StrgScsiRec &device : devices) {
        disks.push_back({device.Model, device.SerialNumber, device.FirmwareRevision});
    }
    for (const StrgHddRec &disk : hardDisks) {
        capacities.push_back(disk.Capacity);
    }
    const std::optional<unsigned> ofDevices = generationOfDisks(disks, why);
    const std::optional<unsigned> ofDisks = generationOfCapacities(capacities, why);
    if (ofDevices && ofDisks && ofDevices != ofDisks) {
        return no(why,
                  "devices of generation " + std::to_string(*ofDevices) + ", disks of " + std::to_string(*ofDisks));
    }
    return ofDisks ? ofDevices : std::nullopt;
}

} // namespace scenario
