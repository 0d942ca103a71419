// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/disk_names.h"

#include "collect/collection/device_kinds.h"
#include "devcmd/open_device.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <scsi/scsi.h>
#include <sys/ioctl.h>

using namespace tavstrg;

static_assert(SCSI_IOCTL_GET_IDLUN == 0x5382);

namespace {

constexpr std::string_view kDisk = "/dev/sd";

// Reply of SCSI_IOCTL_GET_IDLUN (linux/drivers/scsi/scsi_ioctl.c, struct scsi_idlun).
struct IdLun {
    uint32_t address;
    uint32_t hostUniqueId;
};
static_assert(sizeof(IdLun) == 8);

bool readAddress(const char *name, uint32_t *address)
{
    const FileDesc device(openDevice(name, O_RDONLY));
    IdLun reply = {};
    if (!device || ::ioctl(device.get(), SCSI_IOCTL_GET_IDLUN, &reply) < 0) {
        return false;
    }
    *address = reply.address;
    return true;
}

int32_t findInTable(const SCSIDiskNameTable *table, const SCSIDeviceInfo &device, char *path)
{
    return TAVStorageGetSCSIDeviceName(table, &device, path);
}

int32_t findInSysfs(const SCSIDiskNameTable *, const SCSIDeviceInfo &device, char *path)
{
    char found[kDiskPathSize];
    readNodePath({device.host, device.channel, device.id, device.lun}, found);
    std::memcpy(path, found, sizeof found);
    return TRACED(0, kDetail, "%d:%d:%d:%d is [%s]", device.host, device.channel, device.id, device.lun, path);
}

} // namespace

DiskNaming tavstrg::namingByTable(const SCSIDiskNameTable *table)
{
    return {findInTable, table};
}

DiskNaming tavstrg::namingOf(const Options &options, const SCSIDeviceInfo *list, SCSIDiskNameTable &table)
{
    // To open a node and ask it for its address would wake a disk that the kernel has suspended. A kernel that shows
    // its devices in procfs has no such directories.
    const bool asksNoNode = options.has(Option::diskNames) || options.has(Option::sleepingDisks);
    if (asksNoNode && select_proc_or_sys() == kInterfaceSysfs) {
        return {findInSysfs, nullptr};
    }
    return GetSCSIDeviceName_IDArray(list, &table) == 0 ? DiskNaming{} : namingByTable(&table);
}

std::array<char, kDiskNameSize> tavstrg::diskNameCandidate(size_t i)
{
    // The 27th name has two letters, as the kernel goes on after "sdz".
    constexpr size_t kLetters = 26;
    std::array<char, kDiskNameSize> name = {};
    size_t length = kDisk.copy(name.data(), name.size());
    if (i >= kLetters) {
        name[length++] = static_cast<char>('a' + (i / kLetters - 1));
    }
    name[length] = static_cast<char>('a' + i % kLetters);
    return name;
}

uint32_t tavstrg::scsiAddressWord(const SCSIDeviceInfo &device)
{
    return (static_cast<uint32_t>(device.host) << 24) + ((static_cast<uint32_t>(device.channel) & 0xFF) << 16) +
           ((static_cast<uint32_t>(device.lun) << 8) & 0xFFFF) + (static_cast<uint32_t>(device.id) & 0xFF);
}

int32_t GetSCSIDiskDeviceNumber(const SCSIDeviceInfo *list)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    int32_t number = 0;
    for (const SCSIDeviceInfo *device = list; device != nullptr; device = device->next) {
        number += scsiKindOf(fieldText(device->type)).deviceClass == kHardDisk ? 1 : 0;
    }
    return TRACED(number, kDetail, "_OUT_ ret=[%d]", number);
}

int32_t GetSCSIDeviceName_IDArray(const SCSIDeviceInfo *list, SCSIDiskNameTable *table)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    table->count = 0;
    if (list == nullptr) {
        return TRACED(0, kFailure, "_OUT_ Parameter(SCSI Device List) is NULL.");
    }
    const int32_t disks = GetSCSIDiskDeviceNumber(list);
    if (disks == 0) {
        return TRACED(1, kDetail, "_OUT_ TotalSCSIDevNum is 0");
    }
    for (size_t i = 0; i < kDiskNames && table->count < disks; ++i) {
        cancellationPoint();
        const std::array<char, kDiskNameSize> name = diskNameCandidate(i);
        SCSIDiskName &pair = table->pairs[static_cast<size_t>(table->count)];
        if (readAddress(name.data(), &pair.address)) {
            copyText(pair.name, name.data());
            ++table->count;
            TRACE(kDetail, "name=[%s] address=[%08x]", pair.name, pair.address);
        }
    }
    return TRACED(1, kDetail, "_OUT_ ret=[%d]", 1);
}

int32_t TAVStorageGetSCSIDeviceName(const SCSIDiskNameTable *table, const SCSIDeviceInfo *device, char *name)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (table == nullptr || device == nullptr || name == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param is NULL");
    }
    const uint32_t address = scsiAddressWord(*device);
    const auto *const end = table->pairs.data() + table->count;
    const auto *const pair = std::find_if(
        table->pairs.data(), end, [address](const SCSIDiskName &candidate) { return candidate.address == address; });
    name[0] = '\0';
    if (pair != end) {
        std::memcpy(name, pair->name, kDiskNameSize);
    }
    return TRACED(0, kDetail, "_OUT_ name=[%s]", name);
}
