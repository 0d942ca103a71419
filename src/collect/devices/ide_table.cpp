// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/ide_table.h"

#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"
#include "collect/devices/device_number.h"
#include "runtime/cancel.h"
#include "runtime/field_text.h"

using namespace tavstrg;

namespace {

template <size_t N> bool isTerminated(const char (&field)[N])
{
    return fieldText(field).size() < N;
}

// The class entry of a device, traced with the text of its class when it fails.
int makeClassEntry(const DeviceKind &kind, const IDEDeviceInfo &device)
{
    int result = 0;
    switch (kind.deviceClass) {
    case kHardDisk:
        result = MakeIDEHDDevice(device);
        return result == 0 ? 0 : TRACED(-1, kFailure, "_OUT_ MakeIDEHDDevice() failed. ret=[%d]", result);
    case kCdrom:
        result = MakeIDECdromDevice(device);
        return result == 0 ? 0 : TRACED(-1, kFailure, "_OUT_ MakeIDECdromDevice() failed. ret=[%d]", result);
    default:
        result = MakeIDEMiscDevice(device);
        return result == 0 ? 0 : TRACED(-1, kFailure, "_OUT_ MakeIDEMiscDevice() failed. ret=[%d]", result);
    }
}

IDEDeviceEntry newIDEDeviceEntry(const DeviceKind &kind)
{
    IDEDeviceEntry entry = {};
    entry.Index = static_cast<uint16_t>(collection().ide_dev_cnt + 1);
    entry.DeviceTypeIndex = static_cast<uint16_t>(countersOf(collection(), kind.deviceClass).written + 1);
    copyText(entry.notSupported, kNotSupported);
    copyText(entry.revision, kNotSupported);
    copyText(entry.SerialNumber, "Unknown");
    entry.classCodes[0] = kind.codes[0];
    entry.classCodes[1] = kind.codes[1];
    entry.wordsAfter[0] = entry.wordsAfter[1] = kUnknownWord;
    entry.wordsAfter[2] = 1;
    return entry;
}

} // namespace

int GetIDEDevType(const IDEDeviceInfo *device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (device == nullptr || !isTerminated(device->media)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    const int type = ideKindOf(fieldText(device->media)).deviceType;
    return TRACED(type, kDetail, "_OUT_ ret=[%d]", type);
}

uint16_t GetIDEDevChannel(const IDEDeviceInfo &device)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const uint16_t position = ideDrivePosition(fieldText(device.name));
    return TRACED(position, kDetail, "_OUT_ ret=[%d]", position);
}

int GetIDEDevModel(const IDEDeviceInfo &device, IDEDeviceEntry *entry)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (!isTerminated(device.model)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    copyText(entry->model, fieldText(device.model));
    return TRACED(0, kDetail, "_OUT_ model=[%s]", entry->model);
}

int GetIDEDeviceControllerIndex(const IDEDeviceInfo &device, uint16_t *index)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    *index = kUnknownWord;
    int32_t position = 0;
    for (const auto *channel = collection().g_IDEGeneralInfo.controllers; channel != nullptr;
         channel = channel->next, ++position) {
        if (fieldText(channel->name) != fieldText(device.controllerName)) {
            continue;
        }
        if (collection().pIDECtrlTbl == nullptr || position >= collection().ide_ctrl_cnt) {
            return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
        }
        *index = collection().pIDECtrlTbl[position].controllerIndex;
        break;
    }
    return TRACED(0, kDetail, "_OUT_ index=[%d]", *index);
}

int tavstrg::makeIDEDevice(const IDEDeviceInfo *device)
{
    const int type = GetIDEDevType(device);
    if (type < 0) {
        return TRACED(-1, kFailure, "GetIDEDevType() failed! ret = %d loop break!", type);
    }
    const DeviceKind &kind = ideKindOf(fieldText(device->media));
    IDEDeviceEntry entry = newIDEDeviceEntry(kind);
    entry.DeviceType = static_cast<uint16_t>(type);
    if (makeClassEntry(kind, *device) < 0) {
        return -1;
    }
    entry.IDEConfiguration = GetIDEDevChannel(*device);
    int result = GetIDEDevModel(*device, &entry);
    if (result < 0) {
        return TRACED(-1, kFailure, "GetIDEDevModel() failed! ret = %d loop break!", result);
    }
    result = GetIDEDeviceControllerIndex(*device, &entry.ControllerIndex);
    if (result < 0) {
        return TRACED(-1, kFailure, "GetIDEDeviceControllerIndex() failed! ret = %d loop break!", result);
    }
    return appendEntry(collection().pIDEDevTbl, collection().TotalIDEDevice, collection().ide_dev_cnt, entry) ? 0 : -1;
}

int MakeIDEDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    int result = collection().g_IDEGeneralInfo.devices == nullptr ? -1 : 0;
    for (const auto *device = collection().g_IDEGeneralInfo.devices; device != nullptr && result == 0;
         device = device->next) {
        cancellationPoint();
        result = makeIDEDevice(device);
    }
    return TRACED(result, result < 0 ? kFailure : kDetail, "_OUT_ ret=[%d]", result);
}
