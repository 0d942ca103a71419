// SPDX-License-Identifier: Apache-2.0
#include "collect/disk_list.h"

#include "collect/base/text_file.h"
#include "collect/base/text_scan.h"
#include "collect/collection/collection.h"
#include "devcmd/smart/smart_watch.h"
#include "runtime/field_text.h"
#include "runtime/memory.h"

#include <cstdio>

using namespace tavstrg;

namespace {

DiskList *g_wanted = nullptr;

template <class Rec> const Rec *recordAt(std::span<const Rec> records, uint16_t number)
{
    return number < 1 || number > records.size() ? nullptr : &records[number - 1U];
}

void takeScsi(CollectedDisk &disk, const StrgScsiRec &device)
{
    disk.index = device.Index;
    disk.controllerIndex = device.ControllerIndex;
    disk.bus = device.Bus;
    disk.targetId = device.TargetID;
    disk.lun = device.LUN;
    copyText(disk.vendor, withoutTrailing(fieldText(device.Vendor), kBlanks));
    copyText(disk.model, withoutTrailing(fieldText(device.Model), kBlanks));
    copyText(disk.firmware, withoutTrailing(fieldText(device.FirmwareRevision), kBlanks));
    copyText(disk.serial, fieldText(device.SerialNumber));
}

void takeIde(CollectedDisk &disk, const StrgIdeRec &device)
{
    disk.index = device.Index;
    disk.controllerIndex = device.ControllerIndex;
    disk.drivePosition = device.IDEConfiguration;
    copyText(disk.model, withoutTrailing(fieldText(device.Model), kBlanks));
    copyText(disk.firmware, withoutTrailing(fieldText(device.FirmwareRevision), kBlanks));
    copyText(disk.serial, fieldText(device.SerialNumber));
}

// The kernel's copy of the device identification page (SPC-4, 7.8.6), which no command is sent for. Empty if there is
// none.
void readWwid(CollectedDisk &disk)
{
    char path[sizeof "/sys/block//device/wwid" + sizeof disk.name];
    std::snprintf(path, sizeof path, "/sys/block/%s/device/wwid", disk.name);
    char buffer[sizeof disk.wwid];
    std::string_view text;
    if (disk.name[0] != '\0' && readFirstLine(path, buffer, text) == ReadResult::done) {
        const std::string_view line = untilNul(text.substr(0, text.find('\n')));
        copyText(disk.wwid, withoutTrailing(line, kBlanks));
    }
}

CollectedDisk collectedDisk(const StrgHddRec &record, const HardDiskEntry &entry, const DatInfo *records)
{
    CollectedDisk disk = {};
    disk.interfaceType = record.InterfaceType;
    disk.smartStatus = record.SmartStatus;
    disk.smartAsked = g_SmartMode == kSmartModeOn;
    copyText(disk.name, kernelNameOf(fieldText(entry.DevPath)));
    if (record.InterfaceType == kInterfaceIde) {
        if (const auto *ide =
                recordAt(recordsOf<const StrgIdeRec>(records[TAV_CID_STRG_IDE]), record.InterfaceTypeIndex)) {
            takeIde(disk, *ide);
        }
        return disk;
    }
    if (const auto *scsi =
            recordAt(recordsOf<const StrgScsiRec>(records[TAV_CID_STRG_SCSI]), record.InterfaceTypeIndex)) {
        takeScsi(disk, *scsi);
    }
    readWwid(disk);
    return disk;
}

} // namespace

DiskList::DiskList()
{
    g_wanted = this;
}

DiskList::~DiskList()
{
    g_wanted = nullptr;
}

DiskList *tavstrg::wantedDiskList()
{
    return g_wanted;
}

void DiskList::fill(const Collection &all, const DatInfo *records)
{
    const std::span<const StrgHddRec> disks = recordsOf<const StrgHddRec>(records[TAV_CID_STRG_HDD]);
    disks_.reset(disks.empty() ? nullptr : memalloc(static_cast<int32_t>(disks.size() * sizeof(CollectedDisk))));
    count_ = 0;
    filled_ = disks.empty() || static_cast<bool>(disks_);
    if (!filled_) {
        TRACE(kFailure, "disk list alloc Failure!!(%d)", static_cast<int>(disks.size()));
        return;
    }
    for (const StrgHddRec &record : disks) {
        disks_[count_] = collectedDisk(record, all.pHDDevTbl[count_], records);
        ++count_;
    }
}

std::string_view tavstrg::kernelNameOf(std::string_view devPath)
{
    return devPath.substr(devPath.rfind('/') + 1); // npos + 1 is 0
}
