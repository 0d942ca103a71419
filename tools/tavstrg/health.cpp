// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/health.h"

#include "tavstrg/words.h"

namespace tool {
namespace {

void countSmart(Health &health, const HardDisk &disk, const std::string &name)
{
    switch (disk.smart()) {
    case Smart::good:
        ++health.good;
        break;
    case Smart::failing:
        ++health.failurePredicted;
        health.failing.push_back(name);
        break;
    case Smart::notReadable:
        ++health.statusNotReadable;
        health.notReadable.push_back(name);
        break;
    case Smart::notAsked:
        ++health.notAsked;
        break;
    case Smart::notSupported:
        ++health.notSupported;
        break;
    default:
        break;
    }
}

void countWear(Health &health, const LifeSpan &lifeSpan, const std::string &name)
{
    if (lifeSpan.level == 1) {
        ++health.leastEndurance;
        health.worn.push_back(name);
    } else if (lifeSpan.level == 2) {
        ++health.littleEndurance;
        health.wearing.push_back(name);
    } else if (lifeSpan.level == kLifeSpanNotRead) {
        ++health.lifeSpanNotRead;
        health.wearNotRead.push_back(name);
    }
}

void add(std::string &words, const std::string &part, const std::vector<std::string> &names = {})
{
    words += (words.empty() ? "" : "; ") + part;
    for (size_t i = 0; i < names.size(); ++i) {
        words += (i == 0 ? ": " : ", ") + names[i];
    }
}

} // namespace

std::string diskName(const DiskView &view)
{
    if (view.device == nullptr) {
        return "hard disk " + std::to_string(view.disk->index);
    }
    const Device &device = *view.device;
    const std::string name = device.node.empty() ? "hard disk " + std::to_string(view.disk->index) : device.node;
    const std::string serial = device.serialWords();
    return name + " (" + device.address() + (serial.empty() ? "" : ", serial " + serial) + ")";
}

Health healthOf(const Inventory &inventory)
{
    Health health;
    health.smartMode = inventory.monitoring.smartMode;
    for (const DiskView &view : disksOf(inventory)) {
        ++health.disks;
        const std::string name = diskName(view);
        countSmart(health, *view.disk, name);
        if (view.disk->lifeSpan) {
            countWear(health, *view.disk->lifeSpan, name);
        }
    }
    return health;
}

std::string healthWords(const Health &health)
{
    std::string words;
    if (health.failurePredicted != 0) {
        add(words,
            std::to_string(health.failurePredicted) + " of " + counted(health.disks, "disk") +
                (health.failurePredicted == 1 ? " predicts failure" : " predict failure"),
            health.failing);
    }
    if (health.statusNotReadable != 0) {
        add(words, "SMART status of " + counted(health.statusNotReadable, "disk") + " not readable",
            health.notReadable);
    }
    if (health.leastEndurance != 0) {
        add(words, counted(health.leastEndurance, "drive") + " with least endurance left (level 1 of 5)", health.worn);
    }
    if (health.littleEndurance != 0) {
        add(words, counted(health.littleEndurance, "drive") + " with little endurance left (level 2 of 5)",
            health.wearing);
    }
    if (health.lifeSpanNotRead != 0) {
        add(words, "life span of " + counted(health.lifeSpanNotRead, "drive") + " not read", health.wearNotRead);
    }
    if (health.notAsked != 0) {
        add(words, "SMART status of " + counted(health.notAsked, "disk") + " not asked" +
                       (health.smartMode == kSmartHandled
                            ? " (IDE)"
                            : " (HardDiskSmartMode is " + std::to_string(health.smartMode) + ")"));
    }
    if (health.notSupported != 0) {
        add(words, "SMART not supported by " + counted(health.notSupported, "disk"));
    }
    if (health.good != 0) {
        add(words, counted(health.good, "disk") + " good");
    }
    if (words.empty() && health.disks != 0) {
        add(words, "no failure reported by " + counted(health.disks, "disk"));
    }
    return words;
}

Mark markOf(const HardDisk &disk)
{
    const int level = disk.lifeSpan ? disk.lifeSpan->level : kMostEndurance;
    const Smart smart = disk.smart();
    if (smart == Smart::failing || level == 1) {
        return Mark::failure;
    }
    return smart == Smart::notReadable || smart == Smart::unknownCode || level <= 2 ? Mark::warning : Mark::none;
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
