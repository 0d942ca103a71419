// SPDX-License-Identifier: Apache-2.0
// Passes over snapshots that a test makes up, and the alerts that they give.
#pragma once

#include "monitor/health.h"
#include "monitor/monitor.h"
#include "support/alert_recorder.h"
#include "support/store_fixture.h"

#include <functional>

using namespace tavstrg;

// Fills the records of a collection in place of this machine's hardware; history_test.cpp calls it.
inline std::function<void(DatInfo *)> g_collect;

constexpr int16_t kNoLevel = -100; // a disk without a life-span record

struct Disk {
    std::string serial;
    int16_t smart = 0;
    int16_t level = kNoLevel;
    std::string model = "MODEL";
};
using Snapshot = std::vector<Disk>;

// The records of a snapshot.
inline void fillSnapshot(DatInfo *descriptors, const Snapshot &disks)
{
    std::vector<StrgScsiRec> devices;
    std::vector<StrgHddRec> drives;
    std::vector<StrgLifeRec> levels;
    for (const Disk &disk : disks) {
        const auto index = static_cast<uint16_t>(devices.size() + 1);
        devices.push_back(scsiRecord(index, disk.model.c_str()));
        std::strcpy(devices.back().SerialNumber, disk.serial.c_str());
        drives.push_back({index, 0, index, 0, "", 1, 1, 1, 1, disk.smart, 0});
        if (disk.level != kNoLevel) {
            const auto life = static_cast<uint16_t>(levels.size() + 1);
            levels.push_back({life, static_cast<int16_t>(index), disk.level, 0});
        }
    }
    fill(descriptors[TAV_CID_STRG_SCSI], devices);
    fill(descriptors[TAV_CID_STRG_HDD], drives);
    fill(descriptors[TAV_CID_STRG_LIFE], levels);
}

class History : public StoreTest {
protected:
    History()
    {
        g_srvmod = 1;
        gst_first = kBuilt;
    }
    ~History() override { g_collect = nullptr; }

    // A store as the first collection builds it: the first pass reports levels and states.
    void build(const Snapshot &snapshot, int16_t smartMode = 1)
    {
        for (DatInfo &dat : instSt) {
            std::free(takeRecords(dat));
        }
        strgInitDatInfo(instSt);
        fill<StrgConfRec>(instSt[TAV_CID_STRG_CONF], {{60, 10, 3600, 60, smartMode, 0}});
        fill<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], {{}});
        Snapshot first = snapshot;
        for (Disk &disk : first) {
            disk.smart = 0;
            disk.level = disk.level == kNoLevel ? kNoLevel : int16_t{-1};
        }
        fillSnapshot(instSt, first);
        publish();
    }

    // The store after the provider was stopped and started.
    void restart()
    {
        ASSERT_EQ(strgFreeInstance(&cInfo), 0);
        strgInitDatInfo(instSt);
        fill<StrgConfRec>(instSt[TAV_CID_STRG_CONF], {{}});
        fill<StrgTnumRec>(instSt[TAV_CID_STRG_TNUM], {{}});
        ASSERT_EQ(readSaved(instSt), 0);
        publish();
    }

    void publish()
    {
        ASSERT_EQ(shmNew(&cInfo, 10, kShmKeyFileBase, instSt, shmSt), 0);
        ASSERT_EQ(strgPublishAll(&cInfo), 0);
        trace->clear();
    }

    // A pass that collects what collect fills in.
    int passWith(const std::function<void(DatInfo *)> &collect)
    {
        g_collect = collect;
        const int ret = strgCheckConfigChange(&cInfo);
        g_collect = nullptr;
        return ret;
    }
    int pass(const Snapshot &snapshot)
    {
        return passWith([&](DatInfo *descriptors) { fillSnapshot(descriptors, snapshot); });
    }

    // The alerts that were sent, in short form: "config", "smart 2", "level 3 of 1".
    std::vector<std::string> sent()
    {
        std::vector<std::string> words;
        for (const AlertRecord &alert : alerts.records()) {
            const std::string disk = alert.strings[1].substr(0, alert.strings[1].find(']'));
            const std::string index = disk.substr(disk.find('[') + 1);
            if (alert.eventId == TAV_ALERTID_CONFIG_CHANGE) {
                words.emplace_back("config");
            } else if (alert.eventId == TAV_ALERTID_SMART_ERROR) {
                words.push_back("smart " + index);
            } else {
                int16_t level = 1;
                while (lifeSpanEvent(level) != alert.eventId) {
                    ++level;
                }
                words.push_back("level " + std::to_string(level) + " of " + index);
            }
        }
        alerts.clear();
        return words;
    }

    template <class Rec> std::vector<Rec> stored(int id) const { return recordsIn<Rec>(instSt[id]); }

    AlertRecorder alerts;
};
