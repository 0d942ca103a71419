// SPDX-License-Identifier: Apache-2.0
#include "monitor/health.h"
#include "endurance/endurance.h"

#include "runtime/field_text.h"
#include "runtime/memory.h"
#include "runtime/options.h"
#include "store/arrays.h"

#include <algorithm>

using namespace tavstrg;

bool tavstrg::smartAlertDue(std::span<const StrgHddRec> stored, size_t position, int16_t smartStatus)
{
    return position >= stored.size() || stored[position].SmartStatus != smartStatus;
}

const StrgScsiRec *tavstrg::deviceOfDisk(std::span<const StrgScsiRec> devices, int32_t number)
{
    const auto found =
        std::ranges::find_if(devices, [&](const StrgScsiRec &device) { return device.DeviceTypeIndex == number; });
    return found == devices.end() ? nullptr : &*found;
}

std::optional<int16_t> tavstrg::storedLevel(std::span<const StrgScsiRec> devices, std::span<const StrgLifeRec> levels,
                                            const StrgScsiRec &disk)
{
    const auto device = std::ranges::find_if(devices, [&](const StrgScsiRec &candidate) {
        return fieldText(candidate.SerialNumber).starts_with(fieldText(disk.SerialNumber));
    });
    if (device == devices.end()) {
        return std::nullopt;
    }
    const int32_t number = device->DeviceTypeIndex;
    const auto level =
        std::ranges::find_if(levels, [&](const StrgLifeRec &candidate) { return candidate.HDDIndex == number; });
    return level == levels.end() ? std::nullopt : std::optional(level->EnduranceRemaining);
}

uint32_t tavstrg::lifeSpanEvent(int16_t level)
{
    constexpr uint32_t kEvents[] = {0,
                                    TAV_ALERTID_LIFESPAN_LV1,
                                    TAV_ALERTID_LIFESPAN_LV2,
                                    TAV_ALERTID_LIFESPAN_LV3,
                                    TAV_ALERTID_LIFESPAN_LV4,
                                    TAV_ALERTID_LIFESPAN_LV5};
    return level < 0 || static_cast<size_t>(level) >= std::size(kEvents) ? 0 : kEvents[level];
}

alertDiskSt tavstrg::describeDisk(const StrgScsiRec *device, int16_t interfaceType)
{
    alertDiskSt disk = {};
    disk.InterfaceType = static_cast<uint16_t>(interfaceType);
    if (device == nullptr) {
        return disk;
    }
    disk.Index = device->Index;
    disk.ControllerIndex = device->ControllerIndex;
    disk.TargetID = device->TargetID;
    disk.Bus = device->Bus;
    disk.LUN = device->LUN;
    copyText(disk.Vendor, fieldText(device->Vendor));
    copyText(disk.Model, fieldText(device->Model));
    copyText(disk.FirmwareRevision, fieldText(device->FirmwareRevision));
    return disk;
}

namespace {

constexpr int16_t kSmartFailing = 1; // SmartStatus
constexpr int16_t kLevelUnread = -1; // EnduranceRemaining

bool smartModeStored()
{
    const std::shared_lock held(g_recordsLock);
    const std::span<const StrgConfRec> conf = recordsOf<const StrgConfRec>(instSt[TAV_CID_STRG_CONF]);
    return !conf.empty() && conf[0].HardDiskSmartMode == kSmartModeOn;
}

// Whether a pass can compare with what is stored of a class. Without first-devices it cannot where the class has no
// array; with it such a class has no stored record, so that its first device is a new one.
bool isComparable(const DatInfo &stored)
{
    return recordsNow(stored).datAdr != nullptr || currentOptions().has(Option::firstDevices);
}

bool smartAlertDueNow(size_t position, int16_t smartStatus)
{
    const std::shared_lock held(g_recordsLock);
    return smartAlertDue(recordsOf<const StrgHddRec>(instSt[TAV_CID_STRG_HDD]), position, smartStatus);
}

std::optional<int16_t> storedLevelNow(const StrgScsiRec &disk)
{
    const std::shared_lock held(g_recordsLock);
    return storedLevel(recordsOf<const StrgScsiRec>(instSt[TAV_CID_STRG_SCSI]),
                       recordsOf<const StrgLifeRec>(instSt[TAV_CID_STRG_LIFE]), disk);
}

// The SCSI device record at a hard disk's InterfaceTypeIndex. Deliberate: also for an IDE disk, whose index then
// selects an unrelated device. Null outside the array.
const StrgScsiRec *deviceAt(std::span<const StrgScsiRec> devices, uint16_t interfaceTypeIndex)
{
    return interfaceTypeIndex < 1 || interfaceTypeIndex > devices.size() ? nullptr : &devices[interfaceTypeIndex - 1U];
}

// One disk in SMART error state: 0, or -1 when the pass cannot go on.
int alertSmart(const StrgHddRec &disk, size_t position, std::span<const StrgScsiRec> devices, DatInfo *current)
{
    TRACE(kDetail, "HDD[%d] need SMART-alert.", static_cast<int>(position));
    if (!isComparable(instSt[TAV_CID_STRG_HDD])) {
        return TRACED(-1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_HDD].datAdr) Failure!!");
    }
    if (!smartAlertDueNow(position, disk.SmartStatus)) {
        return TRACED(0, kDetail, "but before same SMARTstatus. not Alert.");
    }
    if (disk.InterfaceType == kInterfaceScsi && disk.InterfaceTypeIndex > devices.size()) {
        TRACE(kFailure, "IFType[%d] and Idx[%d] is Mismatch SCSI-num[%d] Failure!!", disk.InterfaceType,
              disk.InterfaceTypeIndex, static_cast<int>(devices.size()));
        freeCollected(current);
        return TRACED(-1, kDetail, "_OUT_ ret=[%d]", -1);
    }
    const alertDiskSt described = describeDisk(deviceAt(devices, disk.InterfaceTypeIndex), disk.InterfaceType);
    static_cast<void>(strgPutAlert(TAV_ALERTID_SMART_ERROR, &described)); // one that is not delivered is not retried
    return 0;
}

const StrgScsiRec *findDeviceOfLevel(const StrgLifeRec &level, std::span<const StrgScsiRec> devices)
{
    const StrgScsiRec *const found = deviceOfDisk(devices, level.HDDIndex);
    for (const StrgScsiRec &tried : devices) {
        TRACE(kDetail, "cur[LIFE].HDDIndex=[%d] cur[SCSI].DevTypeIndex=[%d]", level.HDDIndex, tried.DeviceTypeIndex);
        if (&tried == found) {
            break;
        }
    }
    return found;
}

// Deliberate: the 1-based number is used as a 0-based position, so this is the interface type of the next disk.
int16_t interfaceTypeOf(const StrgScsiRec &device, std::span<const StrgHddRec> disks)
{
    return device.DeviceTypeIndex < disks.size() ? disks[device.DeviceTypeIndex].InterfaceType : kInterfaceScsi;
}

void compareLevel(StrgLifeRec &level, int16_t before, const StrgScsiRec &device, std::span<const StrgHddRec> disks)
{
    TRACE(kDetail, "cur[LIFE].Endu=[%d] inst[LIFE].Endu=[%d]", level.EnduranceRemaining, before);
    if (level.EnduranceRemaining == kLevelUnread) {
        level.EnduranceRemaining = before;
    }
    if (level.EnduranceRemaining == before) {
        return;
    }
    TRACE(kFailure, "inst[LIFE].Endu=[%d] -> cur[LIFE].Endu=[%d:%d]", before, level.EnduranceRemaining, g_M2SSDEndu);
    const alertDiskSt described = describeDisk(&device, interfaceTypeOf(device, disks));
    // One that is not delivered is not retried.
    static_cast<void>(strgPutAlert(lifeSpanEvent(level.EnduranceRemaining), &described));
}

} // namespace

void tavstrg::freeCollected(DatInfo *current)
{
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        memfree(current[id].datAdr);
    }
}

int tavstrg::strgAlertSmart(DatInfo *current)
{
    if (!smartModeStored()) {
        return 0;
    }
    const std::span<const StrgHddRec> disks = recordsOf<const StrgHddRec>(current[TAV_CID_STRG_HDD]);
    const std::span<const StrgScsiRec> devices = recordsOf<const StrgScsiRec>(current[TAV_CID_STRG_SCSI]);
    for (size_t i = 0; i < disks.size(); ++i) {
        if (disks[i].SmartStatus == kSmartFailing && alertSmart(disks[i], i, devices, current) != 0) {
            return -1;
        }
    }
    return 0;
}

int tavstrg::strgAlertLifeSpan(DatInfo *current)
{
    const std::span<const StrgHddRec> disks = recordsOf<const StrgHddRec>(current[TAV_CID_STRG_HDD]);
    const std::span<const StrgScsiRec> devices = recordsOf<const StrgScsiRec>(current[TAV_CID_STRG_SCSI]);
    int position = 0;
    for (StrgLifeRec &level : recordsOf<StrgLifeRec>(current[TAV_CID_STRG_LIFE])) {
        TRACE(kDetail, "SSD-LifeSpan_[%d]", position);
        ++position;
        const StrgScsiRec *const device = findDeviceOfLevel(level, devices);
        if (device == nullptr) {
            continue;
        }
        if (!isComparable(instSt[TAV_CID_STRG_SCSI])) {
            return TRACED(-1, kFailure, "_OUT_ param(instSt[TAV_CID_STRG_SCSI].datAdr) Failure!!");
        }
        if (const std::optional<int16_t> before = storedLevelNow(*device)) {
            compareLevel(level, *before, *device, disks);
        }
    }
    return 0;
}
