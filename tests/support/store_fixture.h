// SPDX-License-Identifier: Apache-2.0
// The store as it is while the monitoring thread keeps it: records that a test puts there by hand, with their segments.
#pragma once

#include "broker/broker.h"
#include "lifecycle/access.h"
#include "monitor/monitor.h"
#include "runtime/memory.h"
#include "sim/sim.h"
#include "support/trace_recorder.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

using namespace tavstrg;

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
// nothing is collected.
class StoreFixture : public testing::Test {
protected:
    StoreFixture()
    {
        machine.makeDirectory("/opt/qlm/tavkit_sa/data");
        machine.makeDirectory("/opt/qlm/tavkit_sa/work");
        sim::countCallsOf("");
        sim::skipSleeps(true);
        g_srvmod = 1;
        *strgGetThreadID() = pthread_self();
        strgInitDatInfo(instSt);
        strgInitStoreMutex();
        for (ShmInfo &shm : shmSt) {
            renewMutex(shm.mutex);
        }
        put<StrgConfRec>(TAV_CID_STRG_CONF, {{60, 10, 3600, 60, 1, 0}});
        put<StrgTnumRec>(TAV_CID_STRG_TNUM, {{}});
        gst_first = 2;
        trace.clear();
    }

    ~StoreFixture() override
    {
        sim::skipSleeps(false);
        *strgGetThreadID() = 0;
        strgFreeInstance(&outside);
        strgInitDatInfo(instSt);
        gst_first = 0;
        gst_SleepSec = 60;
        gst_SmartMode = 0;
        g_srvmod = -1;
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

    sim::Machine machine{"{}"};
    broker::Broker broker;
    CInfo outside = {broker.handle(), nullptr}; // of no request
    TraceRecorder trace;
};
