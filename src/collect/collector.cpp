// SPDX-License-Identifier: Apache-2.0
#include "collect/collector.h"

#include "collect/collection/collection.h"
#include "collect/controllers/controller_build.h"
#include "collect/devices/device_build.h"
#include "collect/disk_list.h"
#include "collect/record_map.h"
#include "collect/scsi/kernel_rules.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "runtime/memory.h"
#include "runtime/options.h"
#include "runtime/trace.h"

#include <span>
#include <sys/utsname.h>

using namespace tavstrg;

namespace {

template <class Rec, class Entry, class Map> void fillRecords(DatInfo &dat, const Entry *table, Map map)
{
    auto *const records = static_cast<Rec *>(dat.datAdr);
    for (int32_t i = 0; i < dat.datNum; ++i) {
        records[i] = map(table[i]);
    }
}

// A class of a collection: how many records it has and where they come from. Records are filled in table order.
struct CollectedClass {
    int id;
    const char *word;      // in the traces
    const char *tableName; // in the trace of a failed allocation
    uint16_t (*number)(const Collection &all);
    void (*fill)(const Collection &all, DatInfo &dat);
};

const CollectedClass kCollected[] = {
    {TAV_CID_STRG_CTRL, "CTRL", "Strg_Ctrl", [](const Collection &all) { return all.CtrlNumMib.TotalController; },
     [](const Collection &all, DatInfo &dat) {
         const std::span<const DriverEntry> drivers(all.pDriverTbl, static_cast<size_t>(all.driver_cnt));
         fillRecords<StrgCtrlRec>(dat, all.pCtrlTbl,
                                  [&](const ControllerEntry &entry) { return controllerRecord(entry, drivers); });
     }},
    {TAV_CID_STRG_SCSI, "SCSI", "Strg_SCSI", [](const Collection &all) { return all.DevNumMib.TotalSCSIDevice; },
     [](const Collection &all, DatInfo &dat) { fillRecords<StrgScsiRec>(dat, all.pSCSIDevTbl, scsiRecord); }},
    {TAV_CID_STRG_IDE, "IDE", "Strg_IDE", [](const Collection &all) { return all.DevNumMib.TotalIDEDevice; },
     [](const Collection &all, DatInfo &dat) { fillRecords<StrgIdeRec>(dat, all.pIDEDevTbl, ideRecord); }},
    {TAV_CID_STRG_HDD, "HDD", "Strg_HDD", [](const Collection &all) { return all.DevNumMib.TotalHDDevice; },
     [](const Collection &all, DatInfo &dat) { fillRecords<StrgHddRec>(dat, all.pHDDevTbl, hardDiskRecord); }},
    {TAV_CID_STRG_CDROM, "CDROM", "Strg_CDROM", [](const Collection &all) { return all.DevNumMib.TotalCdromDevice; },
     [](const Collection &all, DatInfo &dat) {
         fillRecords<StrgDevRec>(dat, all.pCdromDevTbl, deviceRecord<CdromDeviceEntry>);
     }},
    {TAV_CID_STRG_TAPE, "TAPE", "Strg_Tape", [](const Collection &all) { return all.DevNumMib.TotalTapeDevice; },
     [](const Collection &all, DatInfo &dat) {
         fillRecords<StrgDevRec>(dat, all.pTapeDevTbl, deviceRecord<TapeDeviceEntry>);
     }},
    {TAV_CID_STRG_OPTM, "OPTM", "Strg_OptMem", [](const Collection &all) { return all.DevNumMib.TotalOMDevice; },
     [](const Collection &all, DatInfo &dat) {
         fillRecords<StrgDevRec>(dat, all.pOMDevTbl, deviceRecord<ClassDeviceEntry>);
     }},
    {TAV_CID_STRG_MISC, "MISC", "Strg_Misc", [](const Collection &all) { return all.DevNumMib.TotalMiscDevice; },
     [](const Collection &all, DatInfo &dat) {
         fillRecords<StrgDevRec>(dat, all.pMiscDevTbl, deviceRecord<ClassDeviceEntry>);
     }},
    {TAV_CID_STRG_LIFE, "LIFE", "Strg_Life", [](const Collection &all) { return all.DevNumMib.TotalLifeSpan; },
     [](const Collection &all, DatInfo &dat) { fillRecords<StrgLifeRec>(dat, all.pLifeSpanTbl, lifeSpanRecord); }},
};

// Sets the command transport that the running kernel has: 0, or -1 when its version is unknown.
int chooseTransport()
{
    struct utsname kernel = {};
    if (::uname(&kernel) < 0) {
        return TRACED(-1, kDetail, "_OUT_ can't get the Kernel Version, stop the service.");
    }
    const int order = kernelRules().orderOfTransport(kernel.release);
    if (order == -2) {
        return TRACED(-1, kDetail, "_OUT_ version comaparing failed, stop the service.");
    }
    if (order < 0) {
        TRACE(kDetail, "the kernel version < 2.6.9, use ioctl SCSI_IOCTL_SEND_COMMAND");
    } else {
        TRACE(kDetail, "the kernel version >= 2.6.9, use ioctl SG_IO");
    }
    use_sg_io = order < 0 ? 0 : 1;
    return 0;
}

// Count and array of one class: 0, or -1 when memory is short.
int allocateRecords(const Collection &all, const CollectedClass &collected, DatInfo &dat)
{
    dat.datNum = collected.number(all);
    dat.datAdr = nullptr;
    if (dat.datNum >= 1) {
        dat.datAdr = memalloc(dat.datNum * static_cast<int32_t>(dat.datSize));
        if (dat.datAdr == nullptr) {
            return TRACED(-1, kFailure, "%s alloc Failure!!(%d*%d)", collected.tableName,
                          static_cast<int32_t>(dat.datSize), dat.datNum);
        }
    }
    return TRACED(0, kDetail, "datCur[%s] datNum=[%d] datAdr=[%p]", collected.word, dat.datNum, dat.datAdr);
}

} // namespace

int strgGetCurrentInfo(int smartmode, DatInfo *descriptors)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ smartmode=[%d]", smartmode);
    g_SmartMode = smartmode;
    if (descriptors == nullptr) {
        return TRACED(-1, kDetail, "_OUT_ param(descriptors) Failure!!");
    }
    takeOptions();
    if (chooseTransport() < 0) {
        return -1;
    }

    Collection all;
    if (DllMain() < 0) {
        TRACE(kFailure, "DllMain Failure!!");
        all.release();
        return TRACED(-1, kDetail, "_OUT_ ret=[TAV_FALSE]");
    }
    for (const CollectedClass &collected : kCollected) {
        if (allocateRecords(all, collected, descriptors[collected.id]) < 0) {
            all.release();
            return TRACED(-1, kDetail, "_OUT_ ret=[TAV_FALSE]");
        }
    }
    for (const CollectedClass &collected : kCollected) {
        collected.fill(all, descriptors[collected.id]);
    }
    if (DiskList *const wanted = wantedDiskList(); wanted != nullptr && all.options.has(Option::diskAlerts)) {
        wanted->fill(all, descriptors);
    }
    all.release();
    return TRACED(0, kDetail, "_OUT_ ret=[TAV_TRUE]");
}

int DllMain()
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (GetSCSIAndIDEInfoListFromProc() < 0) {
        return TRACED(-1, kDetail, "_OUT_ GetSCSIAndIDEInfoListFromProc() failed, leafstrg initialize failed.");
    }
    if (InitController() < 0) {
        FreeSCSIAndIDEInfoListFromProc();
        return TRACED(-1, kDetail, "_OUT_ InitController() failed, leafstrg initialize failed");
    }
    if (InitDevice() < 0) {
        FreeSCSIAndIDEInfoListFromProc();
        FreeControllerTable();
        return TRACED(-1, kDetail, "_OUT_ InitDevice() failed, leafstrg initialize failed");
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
