// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/health.h"

#include "tavstrg/words.h"

#include <utility>

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
    case Smart::unconfirmed:
        ++health.unconfirmed;
        break;
    default:
        ++health.statusNotReadable; // a code that no provider of this version gives
        health.notReadable.push_back(name);
        break;
    }
}

void countWear(Health &health, const LifeSpan &lifeSpan, const std::string &name)
{
    if (lifeSpan.level == 1) {
        ++health.leastEndurance;
        health.leastLeft.push_back(name);
    } else if (lifeSpan.level == 2) {
        ++health.littleEndurance;
        health.littleLeft.push_back(name);
    } else if (lifeSpan.level == kLifeSpanNotRead) {
        ++health.lifeSpanNotRead;
        health.wearNotRead.push_back(name);
    }
}

using Items = std::vector<HealthItem>;

void add(Items &items, size_t number, Mark mark, std::string text, const std::vector<std::string> &names = {})
{
    if (number == 0) {
        return;
    }
    for (size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? ": " : ", ") + names[i];
    }
    items.push_back({std::move(text), mark});
}

std::string whyNotAsked(const Health &health)
{
    return health.smartMode == kSmartHandled ? "an IDE disk never is"
                                             : "HardDiskSmartMode is " + std::to_string(health.smartMode);
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

std::vector<HealthItem> healthItems(const Health &health)
{
    Items items;
    add(items, health.failurePredicted, Mark::failure,
        std::to_string(health.failurePredicted) + " of " + counted(health.disks, "disk") +
            (health.failurePredicted == 1 ? " predicts failure" : " predict failure"),
        health.failing);
    add(items, health.leastEndurance, Mark::failure,
        counted(health.leastEndurance, "drive") + " with least endurance left (level 1 of 5)", health.leastLeft);
    add(items, health.statusNotReadable, Mark::warning,
        "SMART status of " + counted(health.statusNotReadable, "disk") + " not readable", health.notReadable);
    add(items, health.littleEndurance, Mark::warning,
        counted(health.littleEndurance, "drive") + " with little endurance left (level 2 of 5)", health.littleLeft);
    add(items, health.lifeSpanNotRead, Mark::warning,
        "life span of " + counted(health.lifeSpanNotRead, "drive") + " not readable", health.wearNotRead);
    add(items, health.notAsked, health.smartMode == kSmartHandled ? Mark::none : Mark::warning,
        "SMART status of " + counted(health.notAsked, "disk") + " not asked (" + whyNotAsked(health) + ")");
    add(items, health.notSupported, Mark::none, "SMART not supported by " + counted(health.notSupported, "disk"));
    add(items, health.good, Mark::none, counted(health.good, "disk") + " good");
    add(items, health.unconfirmed, Mark::none, "no failure reported by " + counted(health.unconfirmed, "disk"));
    return items;
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

} // namespace tool
