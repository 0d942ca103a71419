// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/health.h"

#include "tavstrg/words.h"

#include <algorithm>

namespace tool {
namespace {

void countDisk(Health &health, const HardDisk &disk)
{
    ++health.disks;
    health.failurePredicted += disk.smartStatus == kFailurePredicted ? 1 : 0;
    health.statusNotReadable += disk.smartStatus == kStatusNotReadable ? 1 : 0;
    if (disk.lifeSpan) {
        health.leastEndurance += disk.lifeSpan->level == 1 ? 1 : 0;
        health.littleEndurance += disk.lifeSpan->level == 2 ? 1 : 0;
        health.lifeSpanNotRead += disk.lifeSpan->level == kLifeSpanNotRead ? 1 : 0;
    }
}

void countDisks(Health &health, const std::vector<Device> &devices)
{
    for (const Device &device : devices) {
        if (device.disk) {
            countDisk(health, *device.disk);
        }
    }
}

void add(std::string &words, size_t number, const std::string &part)
{
    if (number != 0) {
        words += (words.empty() ? "" : ", ") + part;
    }
}

} // namespace

Health healthOf(const Inventory &inventory)
{
    Health health;
    health.smartHandled = inventory.monitoring.smartMode == 1;
    for (const Controller &controller : inventory.controllers) {
        countDisks(health, controller.devices);
    }
    countDisks(health, inventory.devicesWithoutController);
    for (const HardDisk &disk : inventory.disksWithoutDevice) {
        countDisk(health, disk);
    }
    return health;
}

std::string healthWords(const Health &health)
{
    if (health.disks == 0) {
        return "";
    }
    std::string words;
    add(words, health.failurePredicted,
        std::to_string(health.failurePredicted) + " of " + counted(health.disks, "disk") +
            (health.failurePredicted == 1 ? " predicts failure" : " predict failure"));
    add(words, health.statusNotReadable,
        "SMART status of " + counted(health.statusNotReadable, "disk") + " not readable");
    add(words, health.leastEndurance,
        counted(health.leastEndurance, "drive") + " with least endurance left (level 1 of 5)");
    add(words, health.littleEndurance,
        counted(health.littleEndurance, "drive") + " with little endurance left (level 2 of 5)");
    add(words, health.lifeSpanNotRead, "life span of " + counted(health.lifeSpanNotRead, "drive") + " not read");
    add(words, health.smartHandled ? 0 : 1, "SMART is not handled");
    return words.empty() ? "no failure reported by " + counted(health.disks, "disk") : words;
}

Mark markOf(const HardDisk &disk)
{
    const int level = disk.lifeSpan ? disk.lifeSpan->level : kMostEndurance;
    if (disk.smartStatus == kFailurePredicted || level == 1) {
        return Mark::failure;
    }
    return disk.smartStatus != 0 || level <= 2 ? Mark::warning : Mark::none;
}

Mark markOf(const Health &health)
{
    if (health.failurePredicted + health.leastEndurance != 0) {
        return Mark::failure;
    }
    const bool warns = health.statusNotReadable + health.littleEndurance + health.lifeSpanNotRead != 0;
    return warns ? Mark::warning : Mark::none;
}

} // namespace tool
