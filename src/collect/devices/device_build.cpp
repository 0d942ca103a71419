// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/device_build.h"

#include "collect/devices/ide_table.h"
#include "collect/devices/scsi_table.h"

int InitDevice()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    resetDeviceCounters();
    if (GetDeviceTotalNumber() < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    if (MallocDeviceTable() < 0 || MakeDeviceTable() < 0) {
        FreeDeviceTable();
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    takeWrittenNumbers();
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int MakeDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if ((TotalSCSIDevice != 0 && MakeSCSIDeviceTable() < 0) || (TotalIDEDevice != 0 && MakeIDEDeviceTable() < 0)) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
