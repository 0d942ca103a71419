// SPDX-License-Identifier: Apache-2.0
// What the tests of the store share: a machine, a broker, a request's call information, and a store that starts from
// nothing and leaves nothing.
#pragma once

#include "broker/broker.h"
#include "collect/collector.h"
#include "runtime/memory.h"
#include "sim/sim.h"
#include "store/arrays.h"
#include "support/trace_recorder.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <vector>

using namespace tavstrg;

// A machine of n managed ATA disks on one host adapter.
inline std::string machineWith(int disks, const std::string &firstModel = "MODEL-0")
{
    std::string devices;
    for (int i = 0; i < disks; ++i) {
        const std::string n = std::to_string(i);
        devices += std::string(i == 0 ? "" : ",") + R"({"ata": true, "id": )" + n + R"(, "model": ")" +
                   (i == 0 ? firstModel : "MODEL-" + n) + R"(", "serial": "SERIAL-)" + n +
                   R"(", "revision": "FW01", "sizeBytes": 1073741824})";
    }
    return R"({"kernel": "6.1.0", "hosts": [{"driver": "ahci", "devices": [)" + devices +
           R"(]}], "files": {"storage.inf": "ahci\n"}})";
}

// Bytes of a record, for what takes them so.
template <class Rec> std::span<uint8_t> bytesOfRecord(Rec &record)
{
    return {reinterpret_cast<uint8_t *>(&record), sizeof record};
}

// Gives a descriptor an array of these records.
template <class Rec> void fill(DatInfo &dat, const std::vector<Rec> &records)
{
    void *area = nullptr;
    if (!records.empty()) {
        area = std::calloc(records.size(), sizeof(Rec));
        std::memcpy(area, records.data(), records.size() * sizeof(Rec));
    }
    dat.datSize = sizeof(Rec);
    replaceRecords(dat, static_cast<int32_t>(records.size()), area);
}

template <class Rec> std::vector<Rec> recordsIn(const DatInfo &dat)
{
    const auto *const first = static_cast<const Rec *>(dat.datAdr);
    return first == nullptr ? std::vector<Rec>() : std::vector<Rec>(first, first + dat.datNum);
}

inline StrgScsiRec scsiRecord(uint16_t index, const char *model)
{
    StrgScsiRec record = {};
    record.Index = record.DeviceTypeIndex = record.TargetID = index;
    std::strcpy(record.Vendor, "ATA");
    std::strcpy(record.Model, model);
    std::strcpy(record.FirmwareRevision, "FW01");
    std::strcpy(record.SerialNumber, ("SERIAL-" + std::to_string(index)).c_str());
    return record;
}

// One class after the other with some records, the fifth and the seventh with none.
inline void fillSample(DatInfo *records)
{
    strgInitDatInfo(records);
    fill<StrgConfRec>(records[TAV_CID_STRG_CONF], {{60, 10, 3600, 60, 1, 0}});
    fill<StrgTnumRec>(records[TAV_CID_STRG_TNUM], {{1, 2, 1, 3, 0, 1, 0, 1, 2, 0}});
    StrgCtrlRec controller = {};
    controller.Index = 1;
    controller.InterfaceType = -1;
    std::strcpy(controller.Model, "ahci");
    controller.InterruptNumber = 65535;
    std::strcpy(controller.Driver, "ahci");
    std::strcpy(controller.DriverVersion, "3.0");
    fill<StrgCtrlRec>(records[TAV_CID_STRG_CTRL], {controller});
    fill<StrgScsiRec>(records[TAV_CID_STRG_SCSI], {scsiRecord(1, "ONE"), scsiRecord(2, "TWO")});
    StrgIdeRec ide = {};
    ide.Index = ide.DeviceTypeIndex = 1;
    ide.DeviceType = ide.IDEConfiguration = 2;
    ide.ControllerIndex = 65535;
    std::strcpy(ide.Model, "IDE DISK");
    std::strcpy(ide.FirmwareRevision, "A1");
    std::strcpy(ide.SerialNumber, "IDE-1");
    fill<StrgIdeRec>(records[TAV_CID_STRG_IDE], {ide});
    fill<StrgHddRec>(records[TAV_CID_STRG_HDD], {{1, 0, 1, 0, "", 130, 255, 63, 1024, 0, 0},
                                                 {2, 0, 2, 0, "", 261, 255, 63, 2048, 1, 0},
                                                 {3, 1, 1, 0, "", 5221, 16, 63, 0x80000000U, -1, 0}});
    fill<StrgDevRec>(records[TAV_CID_STRG_TAPE], {{1, 0, 3, 0}});
    fill<StrgDevRec>(records[TAV_CID_STRG_MISC], {{1, 1, 2, 0}});
    fill<StrgLifeRec>(records[TAV_CID_STRG_LIFE], {{1, 1, 5, 0}, {2, 2, -1, 0}});
}

// The process-wide store, as it is when the provider has just been loaded.
inline void resetStore()
{
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        std::free(takeRecords(instSt[id]));
        instSt[id] = {};
        if (shmSt[id].shmId > 0) {
            ::shmctl(shmSt[id].shmId, IPC_RMID, nullptr);
        }
        setSegment(shmSt[id], {0, 0, nullptr}, false);
        destroyMutex(shmSt[id].mutex);
    }
    destroyMutex(instMutexSt);
    instMutexSt.live = false; // unlocked without having been locked, in service mode, it cannot be destroyed
    gst_first = 0;
    gst_SleepSec = 60;
    gst_SmartMode = 0;
    g_srvmod = -1;
}

// A machine's description, a broker with or without service mode, and a request in it.
class StoreTest : public testing::Test {
protected:
    explicit StoreTest(const std::string &description = machineWith(2)) : machine(description)
    {
        sim::countCallsOf("");
        sim::resetCounts();
        resetStore();
        removeSegments(); // of a process that was killed and had this one's identifier before
        machine.makeDirectory("/opt/qlm/tavkit_sa/data");
        machine.makeDirectory("/opt/qlm/tavkit_sa/work");
        request.emplace(broker, "TAV_StorageHardDisk");
        cInfo = {broker.handle(), request->context()};
        g_srvmod = 0;
        for (ShmInfo &shm : shmSt) {
            renewMutex(shm.mutex);
        }
        renewMutex(instMutexSt);
        trace.emplace();
    }
    ~StoreTest() override
    {
        sim::skipSleeps(false);
        trace.reset();
        resetStore();
        EXPECT_EQ(segments(), 0) << "segments are left";
    }

    // Identifiers of the segments that this process created and did not remove.
    static std::vector<int> ownSegments()
    {
        struct shm_info info = {};
        const int last = ::shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds *>(&info));
        std::vector<int> found;
        for (int i = 0; i <= last; ++i) {
            struct shmid_ds segment = {};
            const int id = ::shmctl(i, SHM_STAT, &segment);
            if (id >= 0 && segment.shm_cpid == ::getpid() && (segment.shm_perm.mode & SHM_DEST) == 0) {
                found.push_back(id);
            }
        }
        return found;
    }
    static int segments() { return static_cast<int>(ownSegments().size()); }
    // For tests that make a removal fail: such a segment is forgotten, as nothing else can be done about it.
    static void removeSegments()
    {
        for (const int id : ownSegments()) {
            ::shmctl(id, IPC_RMID, nullptr);
        }
    }

    // What is in the saved-state file: 0, or -1.
    int readSaved(DatInfo *records) const
    {
        std::FILE *const file = std::fopen(machine.where(kSavedStateFile).c_str(), "r");
        const int ret = file == nullptr ? -1 : strgGetBinFile(file, records);
        if (file != nullptr) {
            std::fclose(file);
        }
        return ret;
    }
    int savedDisks() const
    {
        OwnedRecords saved;
        return readSaved(saved.dat) == 0 ? saved.dat[TAV_CID_STRG_HDD].datNum : -1;
    }

    std::vector<std::string> linesOf(const std::string &function) const { return trace->linesOf(function); }

    sim::Machine machine;
    broker::Broker broker;
    std::optional<broker::Request> request;
    CInfo cInfo = {};
    std::optional<TraceRecorder> trace;
};
