// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/device_tables.h"

using namespace tavstrg;

DeviceNumbers DevNumMib = {};

SCSIDeviceEntry *pSCSIDevTbl = nullptr;
IDEDeviceEntry *pIDEDevTbl = nullptr;
HardDiskEntry *pHDDevTbl = nullptr;
CdromDeviceEntry *pCdromDevTbl = nullptr;
TapeDeviceEntry *pTapeDevTbl = nullptr;
ClassDeviceEntry *pOMDevTbl = nullptr;
ClassDeviceEntry *pMiscDevTbl = nullptr;
LifeSpanEntry *pLifeSpanTbl = nullptr;
LifeSpanEntry *pLifeSpanTblOld = nullptr;

int32_t TotalSCSIDevice = 0;
int32_t TotalIDEDevice = 0;
int32_t TotalHDDevice = 0;
int32_t TotalTapeDevice = 0;
int32_t TotalCdromDevice = 0;
int32_t TotalOMDevice = 0;
int32_t TotalMiscDevice = 0;

int32_t scsi_dev_cnt = 0;
int32_t ide_dev_cnt = 0;
int32_t hd_dev_cnt = 0;
int32_t tape_dev_cnt = 0;
int32_t cdrom_dev_cnt = 0;
int32_t om_dev_cnt = 0;
int32_t misc_dev_cnt = 0;
int32_t scsi_hd_cnt = 0;

char gDriverName[65] = "Unknown";

const ClassCounters tavstrg::kClassCounters[kDeviceClassCount] = {
    {&TotalHDDevice, &hd_dev_cnt}, {&TotalCdromDevice, &cdrom_dev_cnt}, {&TotalTapeDevice, &tape_dev_cnt},
    {&TotalOMDevice, &om_dev_cnt}, {&TotalMiscDevice, &misc_dev_cnt},
};

namespace {

// Low 16 bits, as every count in a record.
uint16_t word(int32_t number)
{
    return static_cast<uint16_t>(number);
}

} // namespace

void tavstrg::resetDeviceCounters()
{
    DevNumMib = {};
    TotalSCSIDevice = TotalIDEDevice = 0;
    scsi_dev_cnt = ide_dev_cnt = scsi_hd_cnt = 0;
    for (const ClassCounters &counters : kClassCounters) {
        *counters.total = *counters.written = 0;
    }
}

void tavstrg::takeReservedNumbers()
{
    DevNumMib = {word(TotalSCSIDevice),  word(TotalIDEDevice), word(TotalHDDevice),   word(TotalTapeDevice),
                 word(TotalCdromDevice), word(TotalOMDevice),  word(TotalMiscDevice), 0};
}

void tavstrg::takeWrittenNumbers()
{
    DevNumMib = {word(scsi_dev_cnt),  word(ide_dev_cnt), word(hd_dev_cnt),   word(tape_dev_cnt),
                 word(cdrom_dev_cnt), word(om_dev_cnt),  word(misc_dev_cnt), DevNumMib.TotalLifeSpan};
}

int MallocDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (allocateTable(pSCSIDevTbl, TotalSCSIDevice) < 0 || allocateTable(pIDEDevTbl, TotalIDEDevice) < 0 ||
        allocateTable(pHDDevTbl, TotalHDDevice) < 0 || allocateTable(pTapeDevTbl, TotalTapeDevice) < 0 ||
        allocateTable(pCdromDevTbl, TotalCdromDevice) < 0 || allocateTable(pOMDevTbl, TotalOMDevice) < 0 ||
        allocateTable(pMiscDevTbl, TotalMiscDevice) < 0) {
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void FreeDeviceTable()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    memfree(pSCSIDevTbl);
    memfree(pIDEDevTbl);
    memfree(pHDDevTbl);
    memfree(pTapeDevTbl);
    memfree(pCdromDevTbl);
    memfree(pOMDevTbl);
    memfree(pMiscDevTbl);
    memfree(pLifeSpanTbl);
    memfree(pLifeSpanTblOld);
    TRACE(kDetail, "_OUT_");
}
