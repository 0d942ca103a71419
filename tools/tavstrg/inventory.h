// SPDX-License-Identifier: Apache-2.0
// The machine's storage as a tree, built from the instances of the classes, ready to be printed.
#pragma once

#include "tavstrg/words.h"

#include "broker/broker.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

constexpr unsigned kNoController = 65535; // ControllerIndex of a device whose controller is not known
constexpr unsigned kNoInterrupt = 65535;
constexpr int kSmartHandled = 1; // the only HardDiskSmartMode in which disks are asked

struct LifeSpan {
    unsigned index = 0;
    int level = -1;
};

struct HardDisk {
    unsigned index = 0;
    int interfaceType = 0;
    unsigned interfaceTypeIndex = 0;
    uint32_t cylinders = 0;
    uint32_t heads = 0;
    uint32_t sectorsPerTrack = 0;
    uint32_t capacity = 0; // MiB
    int smartStatus = 0;
    std::optional<LifeSpan> lifeSpan;   // solid-state drives of the endurance table only
    Smart reading = Smart::unconfirmed; // what a smartStatus of 0 means

    Smart smart() const; // its state as far as it is known; a failure that is predicted is never hidden
};

struct Device {
    int interfaceType = 0; // by its class: 0 SCSI, 1 IDE
    unsigned index = 0;
    int deviceType = 0; // codes of its interface
    unsigned deviceTypeIndex = 0;
    unsigned controllerIndex = kNoController;
    unsigned bus = 0, targetId = 0, lun = 0; // SCSI only
    int ideConfiguration = 0;                // IDE only
    std::string vendor;                      // SCSI only
    std::string model, firmwareRevision, serialNumber;
    std::optional<HardDisk> disk; // of a hard disk
    std::optional<unsigned> host; // number of its SCSI host where the kernel shows it; see places.h
    std::string node;             // "sda"; empty when not known

    std::string address() const;     // "host:channel:target:LUN", without the host where it is not known; "master"
    std::string nameWords() const;   // vendor and model, printable
    std::string serialWords() const; // printable; empty when not known
};

struct Controller {
    unsigned index = 0;
    int interfaceType = 0;
    std::string model;
    unsigned interruptNumber = kNoInterrupt;
    std::string driver, driverVersion;
    std::vector<Device> devices;
    std::optional<unsigned> host; // number of its SCSI host; see places.h
};

struct Totals {
    unsigned controllers = 0, scsiDevices = 0, ideDevices = 0, hardDisks = 0, cdroms = 0, tapes = 0,
             opticalMemories = 0, others = 0;
};

struct Monitoring {
    unsigned cycle = 0, cycleMin = 0, cycleMax = 0, cycleDefault = 0; // seconds
    int smartMode = 0;                                                // kSmartHandled or another
    bool running = false;
};

// When and how long the provider was asked.
struct Collection {
    double time = 0; // seconds since 1970 at its end
    double seconds = 0;
};

struct Inventory {
    std::string machine; // name of the simulated machine; empty for the real one
    Collection collection;
    std::string explanation; // why it is empty, when it is
    std::vector<Controller> controllers;
    std::vector<Device> devicesWithoutController;
    // Disks whose device record was not found: something was plugged in or out between two answers.
    std::vector<HardDisk> disksWithoutDevice;
    Totals totals;
    Monitoring monitoring;

    size_t deviceCount() const;
};

// A disk with its device, which is null where something was plugged in between two answers.
struct DiskView {
    const HardDisk *disk;
    const Device *device;
};

// All disks in the order of the tree. Valid as long as the inventory.
std::vector<DiskView> disksOf(const Inventory &inventory);

// The classes from which the tree is built, in the order of the requests.
const std::vector<std::string> &inventoryClasses();

// Instances by full class name; a class that is absent has none.
using Answers = std::map<std::string, std::vector<broker::Instance>>;

// Puts devices below the controller that their ControllerIndex names, disks below the device that they name, life spans
// below their disk. A property that is missing or of another type counts as 0 or empty.
Inventory buildInventory(const Answers &answers);

// A number property, 0 when it is missing; text is read as decimal (the key Index is one).
int64_t numberOf(const broker::Instance &instance, const std::string &property);
// A text property, empty when it is missing.
std::string textOf(const broker::Instance &instance, const std::string &property);

} // namespace tool
