// SPDX-License-Identifier: Apache-2.0
// The store fixture: the process-wide store on a simulated machine, in an embedded broker. StoreTest has the store of a
// provider that was just loaded, ServedStore the one that requests meet while the monitoring thread runs.
#pragma once

#include "broker/broker.h"
#include "collect/collector.h"
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "runtime/memory.h"
#include "sim/sim.h"
#include "store/arrays.h"
#include "support/machines.h"
#include "support/process.h"
#include "support/record_fixture.h"
#include "support/trace_recorder.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace tavstrg;

// A machine of n managed ATA disks on one host adapter: models MODEL-0 and up, serial numbers SERIAL-0 and up.
inline std::string machineWith(int disks, const std::string &firstModel = "MODEL-0")
{
    return machines::ofEqualDisks(static_cast<size_t>(disks), firstModel);
}

// Puts the process-wide store into the state that it has when the provider is loaded.
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

// A machine, a broker, and a store that starts empty and leaves nothing.
class StoreFixture : public testing::Test {
protected:
    explicit StoreFixture(const std::string &description) : machine(description)
    {
        sim::countCallsOf("");
        sim::resetCounts();
        resetStore();
        removeSegments(); // of a killed process that had the same identifier
        machine.makeDirectory("/opt/qlm/tavkit_sa/data");
        machine.makeDirectory("/opt/qlm/tavkit_sa/work");
        g_srvmod = 0;
        for (ShmInfo &shm : shmSt) {
            renewMutex(shm.mutex);
        }
        renewMutex(instMutexSt);
    }
    ~StoreFixture() override
    {
        sim::skipSleeps(false);
        resetStore();
        EXPECT_EQ(segments(), 0) << "segments are left";
    }

    // Segments that this process created and did not remove.
    static int segments() { return static_cast<int>(process::segmentsOf(::getpid(), 0).size()); }
    // For tests that make a removal fail: only the test can remove such a segment.
    static void removeSegments() { process::removeSegmentsOf(::getpid(), 0); }

    sim::Machine machine;
    broker::Broker broker;
};

// Outside service mode, with a request and nothing in the store.
class StoreTest : public StoreFixture {
protected:
    explicit StoreTest(const std::string &description = machineWith(2)) : StoreFixture(description)
    {
        cInfo = {broker.handle(), request.context()};
    }

    // Reads the saved-state file. Returns 0, or -1 on error.
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

    broker::Request request{broker, "TAV_StorageHardDisk"};
    CInfo cInfo = {};
    std::optional<TraceRecorder> trace{std::in_place};
};

// The broker's calls without which no handler has an instance, and what is traced when they fail.
struct FailingBuild {
    const char *slot;
    const char *text;
};
inline constexpr FailingBuild kFailingBuilds[] = {
    {"getNameSpace", "_OUT_ CMGetCharPtr() Failure!!"},
    {"newObjectPath", "_OUT_ CMNewObjectPath() Failure!!"},
    {"newInstance", "_OUT_ CMNewInstance() Failure!!"},
    {"setPropertyFilter", "CMSetPropertyFilter() Failure!!"},
};

// In service mode, with a thread that runs as far as a request can see: requests are answered from the segments, and
// nothing is collected. Records are put in by the test.
class ServedStore : public StoreFixture {
protected:
    ServedStore() : StoreFixture("{}")
    {
        sim::skipSleeps(true);
        g_srvmod = 1;
        *strgGetThreadID() = pthread_self();
        strgInitDatInfo(instSt);
        put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 1, 0}});
        put<StrgTnumRec>(TAV_CID_STRG_TNUM, {{}});
        gst_first = 2;
    }

    ~ServedStore() override
    {
        *strgGetThreadID() = 0;
        strgFreeInstance(&outside);
        strgInitDatInfo(instSt);
        EXPECT_TRUE(broker.accounting().clean()) << testing::PrintToString(broker.accounting().notes);
        EXPECT_EQ(machine.openDescriptors(), 0);
    }

    // The records of one class, in the store and in its segment.
    template <class Rec> void put(int classId, const std::vector<Rec> &records)
    {
        ASSERT_EQ(sizeof(Rec), kClasses[classId].recordSize);
        DatInfo &dat = instSt[classId];
        memfree(dat.datAdr);
        dat.datNum = static_cast<int32_t>(records.size());
        if (!records.empty()) {
            dat.datAdr = memalloc(static_cast<int32_t>(records.size() * sizeof(Rec)));
            std::memcpy(dat.datAdr, records.data(), records.size() * sizeof(Rec));
        }
        ASSERT_EQ(shmNew(&outside, TAV_CID_STRG_LIFE, kShmKeyFileBase, instSt, shmSt), 0);
        for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
            if (instSt[id].datNum > 0) {
                ASSERT_EQ(setInstToShm(&outside, &instSt[id], &shmSt[id]), 0);
            }
        }
        trace.clear();
    }

    CInfo outside = {broker.handle(), nullptr}; // call information of no request
    TraceRecorder trace;
};
