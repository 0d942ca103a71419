// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/readings.h"

#include <algorithm>

namespace tool {
namespace {

constexpr int kFailureLevel = 3;
constexpr std::string_view kCollector = "strgGetCurrentInfo";
constexpr std::string_view kPass = "strgCheckConfigChange";
constexpr std::string_view kDispatcher = "TAVStorageSmartWatch"; // once for each SCSI hard disk, in their order

bool readsStatus(std::string_view function)
{
    return function.starts_with("get_") && function.ends_with("_smart");
}

// A status that came with sense data in a format from which no verdict can be taken.
bool isUndecoded(int level, std::string_view function)
{
    return level >= kFailureLevel && function == "scsi_find_sense_data";
}

bool startsAsking(std::string_view function)
{
    return function == "fetch_enable_disable" || (function.starts_with("enable_") && function.ends_with("_smart")) ||
           readsStatus(function);
}

} // namespace

void SmartReadings::take(int level, std::string_view function, std::string_view text)
{
    const std::lock_guard held(guard_);
    if (function == kCollector && text.starts_with("_IN_")) {
        found_.clear();
    } else if (function == kPass && text.starts_with("_OUT_")) {
        ++passes_;
    } else if (function == kDispatcher && text.starts_with("_IN_")) {
        asked_ = notSupported_ = readingStatus_ = statusRead_ = statusFailed_ = false;
    } else if (function == kDispatcher && text.starts_with("_OUT_")) {
        found_.push_back(outcome());
    } else if (startsAsking(function)) {
        asked_ = true;
        // "/dev/sda: not support smart", "/dev/sda : not support S.M.A.R.T."
        notSupported_ = notSupported_ || text.find("not support") != std::string_view::npos;
        if (readsStatus(function)) {
            readingStatus_ = !text.starts_with("_OUT_");
            statusRead_ = true;
            statusFailed_ = statusFailed_ || level >= kFailureLevel;
        }
    } else if (readingStatus_ && isUndecoded(level, function)) {
        statusFailed_ = true;
    }
}

Smart SmartReadings::outcome() const
{
    if (!asked_) {
        return Smart::notAsked;
    }
    if (notSupported_) {
        return Smart::notSupported;
    }
    return statusRead_ && !statusFailed_ ? Smart::good : Smart::notReadable;
}

unsigned SmartReadings::passes() const
{
    const std::lock_guard held(guard_);
    return passes_;
}

std::vector<Smart> SmartReadings::found() const
{
    const std::lock_guard held(guard_);
    return found_;
}

namespace {

template <class Act> void forEachScsiDisk(Inventory &inventory, Act act)
{
    const auto among = [&act](std::vector<Device> &devices) {
        for (Device &device : devices) {
            if (device.disk && device.disk->interfaceType == kScsi) {
                act(*device.disk);
            }
        }
    };
    for (Controller &controller : inventory.controllers) {
        among(controller.devices);
    }
    among(inventory.devicesWithoutController);
    for (HardDisk &disk : inventory.disksWithoutDevice) {
        if (disk.interfaceType == kScsi) {
            act(disk);
        }
    }
}

} // namespace

void setReadings(Inventory &inventory, const std::vector<Smart> &found)
{
    size_t disks = 0;
    forEachScsiDisk(inventory, [&disks](HardDisk &) { ++disks; });
    if (disks != found.size()) {
        return;
    }
    // SCSI disks are the first hard disks, numbered from 1 without a gap.
    forEachScsiDisk(inventory, [&found](HardDisk &disk) {
        if (disk.index >= 1 && disk.index <= found.size()) {
            disk.reading = found[disk.index - 1];
        }
    });
}

} // namespace tool
