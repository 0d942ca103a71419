// SPDX-License-Identifier: Apache-2.0
#include "collect/collector.h"

#include "collect/collection/discovery_lists.h"
#include "collect/controllers/controller_build.h"
#include "collect/devices/device_build.h"
#include "collect/record_map.h"
#include "devcmd/kernel/kernel_version.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "runtime/trace.h"

#include <sys/utsname.h>

using namespace tavstrg;

namespace {

// Frees the tables of a collection on every path, also when its thread is cancelled between two devices.
class CollectionHolder {
public:
    CollectionHolder() = default;
    ~CollectionHolder() { release(); }
    CollectionHolder(const CollectionHolder &) = delete;
    CollectionHolder &operator=(const CollectionHolder &) = delete;
    void release()
    {
        if (held_) {
            held_ = false;
            freeCollection();
        }
    }

private:
    bool held_ = true;
};

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
    const uint16_t *number;
    void (*fill)(DatInfo &dat);
};

const CollectedClass kCollected[] = {
    {TAV_CID_STRG_CTRL, "CTRL", "Strg_Ctrl", &CtrlNumMib.TotalController,
     [](DatInfo &dat) {
         const std::span<const DriverEntry> drivers(pDriverTbl, static_cast<size_t>(driver_cnt));
         fillRecords<StrgCtrlRec>(dat, pCtrlTbl,
                                  [&](const ControllerEntry &entry) { return controllerRecord(entry, drivers); });
     }},
    {TAV_CID_STRG_SCSI, "SCSI", "Strg_SCSI", &DevNumMib.TotalSCSIDevice,
     [](DatInfo &dat) { fillRecords<StrgScsiRec>(dat, pSCSIDevTbl, scsiRecord); }},
    {TAV_CID_STRG_IDE, "IDE", "Strg_IDE", &DevNumMib.TotalIDEDevice,
     [](DatInfo &dat) { fillRecords<StrgIdeRec>(dat, pIDEDevTbl, ideRecord); }},
    {TAV_CID_STRG_HDD, "HDD", "Strg_HDD", &DevNumMib.TotalHDDevice,
     [](DatInfo &dat) { fillRecords<StrgHddRec>(dat, pHDDevTbl, hardDiskRecord); }},
    {TAV_CID_STRG_CDROM, "CDROM", "Strg_CDROM", &DevNumMib.TotalCdromDevice,
     [](DatInfo &dat) { fillRecords<StrgDevRec>(dat, pCdromDevTbl, deviceRecord<CdromDeviceEntry>); }},
    {TAV_CID_STRG_TAPE, "TAPE", "Strg_Tape", &DevNumMib.TotalTapeDevice,
     [](DatInfo &dat) { fillRecords<StrgDevRec>(dat, pTapeDevTbl, deviceRecord<TapeDeviceEntry>); }},
    {TAV_CID_STRG_OPTM, "OPTM", "Strg_OptMem", &DevNumMib.TotalOMDevice,
     [](DatInfo &dat) { fillRecords<StrgDevRec>(dat, pOMDevTbl, deviceRecord<ClassDeviceEntry>); }},
    {TAV_CID_STRG_MISC, "MISC", "Strg_Misc", &DevNumMib.TotalMiscDevice,
     [](DatInfo &dat) { fillRecords<StrgDevRec>(dat, pMiscDevTbl, deviceRecord<ClassDeviceEntry>); }},
    {TAV_CID_STRG_LIFE, "LIFE", "Strg_Life", &DevNumMib.TotalLifeSpan,
     [](DatInfo &dat) { fillRecords<StrgLifeRec>(dat, pLifeSpanTbl, lifeSpanRecord); }},
};

// Sets the command transport that the running kernel has: 0, or -1 when its version cannot be told.
int chooseTransport()
{
    struct utsname kernel = {};
    if (::uname(&kernel) < 0) {
        return TRACED(-1, kDetail, "_OUT_ can't get the Kernel Version, stop the service.");
    }
    const int order = CmpVersion(kernel.release, "2.6.9");
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
int allocateRecords(const CollectedClass &collected, DatInfo &dat)
{
    dat.datNum = *collected.number;
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
    if (chooseTransport() < 0) {
        return -1;
    }

    CollectionHolder collection;
    if (DllMain() < 0) {
        TRACE(kFailure, "DllMain Failure!!");
        collection.release();
        return TRACED(-1, kDetail, "_OUT_ ret=[TAV_FALSE]");
    }
    for (const CollectedClass &collected : kCollected) {
        if (allocateRecords(collected, descriptors[collected.id]) < 0) {
            collection.release();
            return TRACED(-1, kDetail, "_OUT_ ret=[TAV_FALSE]");
        }
    }
    for (const CollectedClass &collected : kCollected) {
        collected.fill(descriptors[collected.id]);
    }
    collection.release();
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

void tavstrg::freeCollection()
{
    FreeDeviceTable();
    FreeSCSIAndIDEInfoListFromProc();
    FreeControllerTable();
}
