// SPDX-License-Identifier: Apache-2.0
#include "collect/base/flat_table.h"
#include "collect/collection/collection.h"

using namespace tavstrg;

namespace {

// Low 16 bits, as every count in a record.
uint16_t word(int32_t number)
{
    return static_cast<uint16_t>(number);
}

} // namespace

ClassCounters tavstrg::countersOf(Collection &all, DeviceClass deviceClass)
{
    switch (deviceClass) {
    case kHardDisk:
        return {all.TotalHDDevice, all.hd_dev_cnt};
    case kCdrom:
        return {all.TotalCdromDevice, all.cdrom_dev_cnt};
    case kTape:
        return {all.TotalTapeDevice, all.tape_dev_cnt};
    case kOpticalMemory:
        return {all.TotalOMDevice, all.om_dev_cnt};
    case kOtherDevice:
        break;
    }
    return {all.TotalMiscDevice, all.misc_dev_cnt};
}

void tavstrg::resetDeviceCounters(Collection &all)
{
    all.DevNumMib = {};
    all.TotalSCSIDevice = all.TotalIDEDevice = 0;
    all.scsi_dev_cnt = all.ide_dev_cnt = all.scsi_hd_cnt = 0;
    for (const DeviceClass deviceClass : {kHardDisk, kCdrom, kTape, kOpticalMemory, kOtherDevice}) {
        const ClassCounters counters = countersOf(all, deviceClass);
        counters.total = counters.written = 0;
    }
}

void tavstrg::takeReservedNumbers(Collection &all)
{
    all.DevNumMib = {
        word(all.TotalSCSIDevice),  word(all.TotalIDEDevice), word(all.TotalHDDevice),   word(all.TotalTapeDevice),
        word(all.TotalCdromDevice), word(all.TotalOMDevice),  word(all.TotalMiscDevice), 0};
}

void tavstrg::takeWrittenNumbers(Collection &all)
{
    all.DevNumMib = {word(all.scsi_dev_cnt), word(all.ide_dev_cnt),      word(all.hd_dev_cnt),
                     word(all.tape_dev_cnt), word(all.cdrom_dev_cnt),    word(all.om_dev_cnt),
                     word(all.misc_dev_cnt), all.DevNumMib.TotalLifeSpan};
}

int MallocDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    Collection &all = collection();
    if (allocateTable(all.pSCSIDevTbl, all.TotalSCSIDevice) < 0 ||
        allocateTable(all.pIDEDevTbl, all.TotalIDEDevice) < 0 || allocateTable(all.pHDDevTbl, all.TotalHDDevice) < 0 ||
        allocateTable(all.pTapeDevTbl, all.TotalTapeDevice) < 0 ||
        allocateTable(all.pCdromDevTbl, all.TotalCdromDevice) < 0 ||
        allocateTable(all.pOMDevTbl, all.TotalOMDevice) < 0 ||
        allocateTable(all.pMiscDevTbl, all.TotalMiscDevice) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void FreeDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    Collection &all = collection();
    memfree(all.pSCSIDevTbl);
    memfree(all.pIDEDevTbl);
    memfree(all.pHDDevTbl);
    memfree(all.pTapeDevTbl);
    memfree(all.pCdromDevTbl);
    memfree(all.pOMDevTbl);
    memfree(all.pMiscDevTbl);
    memfree(all.pLifeSpanTbl);
    memfree(all.pLifeSpanTblOld);
    TRACE(kDetail, "_OUT_");
}
