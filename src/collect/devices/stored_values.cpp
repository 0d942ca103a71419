// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/stored_values.h"

#include "runtime/field_text.h"
#include "store/store.h"

#include <algorithm>
#include <iterator>
#include <shared_mutex>

using namespace tavstrg;

namespace {

// The records of a class under g_recordsLock.
// Whether a record has a text: as much of it as fits its field.
template <size_t Size> bool holds(const char (&field)[Size], std::string_view text)
{
    return fieldText(field) == text.substr(0, Size - 1);
}

// Deliberate: a stored serial number may run on into the text that followed it on the disk.
bool hasSerial(const StrgScsiRec &device, const SoughtDisk &sought)
{
    return holds(device.Model, sought.model) && fieldText(device.SerialNumber).starts_with(sought.serial);
}

bool isAtPlace(const StrgScsiRec &device, const SoughtDisk &sought)
{
    return device.Bus == static_cast<uint16_t>(sought.address.channel) &&
           device.TargetID == static_cast<uint16_t>(sought.address.id) &&
           device.LUN == static_cast<uint16_t>(sought.address.lun) && holds(device.Vendor, sought.vendor) &&
           holds(device.Model, sought.model);
}

constexpr int16_t kDiskType = 0; // DeviceType

const StrgScsiRec *findDevice(std::span<const StrgScsiRec> devices, const SoughtDisk &sought)
{
    const bool bySerial = sought.serial[0] != '\0';
    const auto matches = [&](const StrgScsiRec &device) {
        return device.DeviceType == kDiskType && (bySerial ? hasSerial(device, sought) : isAtPlace(device, sought));
    };
    const auto found = std::ranges::find_if(devices, matches);
    if (found == devices.end() ||
        (!bySerial && std::find_if(std::next(found), devices.end(), matches) != devices.end())) {
        return nullptr;
    }
    return &*found;
}

std::optional<uint16_t> storedWear(std::span<const StrgLifeRec> lives, const StrgScsiRec &device, const char *model)
{
    const auto life =
        std::ranges::find_if(lives, [&](const StrgLifeRec &each) { return each.HDDIndex == device.DeviceTypeIndex; });
    const M2SSDInf *const rated = findM2SSD(g_M2SSDInf, g_M2SSDCnt, model);
    return life == lives.end() || rated == nullptr ? std::nullopt : figureOfLevel(*rated, life->EnduranceRemaining);
}

} // namespace

std::optional<uint16_t> tavstrg::figureOfLevel(const M2SSDInf &rated, int16_t level)
{
    const int16_t bounds[] = {rated.min, rated.lv2, rated.lv3, rated.lv4, rated.lv5};
    if (level < 1 || static_cast<size_t>(level) > std::size(bounds)) {
        return std::nullopt;
    }
    const auto figure = static_cast<uint16_t>(std::max<int16_t>(bounds[level - 1], 0));
    return enduranceLevel(rated, figure) == level ? std::optional(figure) : std::nullopt;
}

std::optional<LastValues> tavstrg::findStored(const StoredDisks &stored, const SoughtDisk &sought)
{
    const StrgScsiRec *const device = findDevice(stored.devices, sought);
    if (device == nullptr) {
        return std::nullopt;
    }
    const auto disk = std::ranges::find_if(stored.disks, [&](const StrgHddRec &each) {
        return each.InterfaceType == kInterfaceScsi && each.InterfaceTypeIndex == device->Index;
    });
    if (disk == stored.disks.end()) {
        return std::nullopt;
    }
    LastValues values = {};
    copyText(values.serial, fieldText(device->SerialNumber));
    values.cylinders = disk->CylindersPerUnit;
    values.heads = disk->TracksPerCylinder;
    values.sectors = disk->SectorsPerTrack;
    values.capacity = disk->Capacity;
    values.predict = disk->SmartStatus;
    values.smartAsked = true;
    const std::optional<uint16_t> wear = storedWear(stored.lives, *device, sought.model);
    values.wearKnown = wear.has_value();
    values.wear = wear.value_or(0);
    return values;
}

std::optional<LastValues> tavstrg::readStored(const SoughtDisk &sought)
{
    const std::shared_lock held(g_recordsLock);
    return findStored({recordsOf<const StrgScsiRec>(instSt[TAV_CID_STRG_SCSI]),
                       recordsOf<const StrgHddRec>(instSt[TAV_CID_STRG_HDD]),
                       recordsOf<const StrgLifeRec>(instSt[TAV_CID_STRG_LIFE])},
                      sought);
}
