// SPDX-License-Identifier: Apache-2.0
// Inventories of simulated machines with what an administrator's options.inf switches on.
#pragma once

#include "collect/collection/collection.h"
#include "collect/collector.h"
#include "collect/devices/last_values.h"
#include "devcmd/open_device.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "endurance/endurance.h"
#include "records/records.h"
#include "runtime/options.h"
#include "sim/sim.h"
#include "support/machines.h"
#include "support/trace_recorder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace tavstrg;

// A machine, and the inventory that was taken last.
class Inventory : public testing::Test {
protected:
    using json = nlohmann::json;

    ~Inventory() override
    {
        collected_.reset();
        machine_.reset();
        takeOptions(); // no file any more: nothing is on
        g_nodeUse = NodeUse::kAsAsked;
    }

    void boot(json machine)
    {
        collected_.reset();
        machine_.reset();
        g_lastValues.clear(); // as in a new process
        machine_ = std::make_unique<sim::Machine>(machine.dump());
    }
    // Takes an inventory with these lines in options.inf, or without the file: 0, or -1.
    int collect(const std::string &options = "")
    {
        const std::string path = "/opt/qlm/tavkit_sa/data/options.inf";
        if (options.empty()) {
            machine_->remove(path);
        } else {
            machine_->write(path, options + "\n");
        }
        takeOptions();
        collected_.reset(); // one at a time
        collected_.emplace();
        g_SmartMode = kSmartModeOn;
        use_sg_io = 1;
        machine_->forgetCommands();
        machine_->forgetOpenings();
        trace_.clear();
        return DllMain();
    }

    std::vector<std::string> serials() const
    {
        std::vector<std::string> all;
        for (int i = 0; i < collection().scsi_dev_cnt; ++i) {
            all.emplace_back(collection().pSCSIDevTbl[i].SerialNumber);
        }
        return all;
    }
    std::vector<std::string> paths() const
    {
        std::vector<std::string> all;
        for (int i = 0; i < collection().hd_dev_cnt; ++i) {
            all.emplace_back(collection().pHDDevTbl[i].DevPath);
        }
        return all;
    }
    std::vector<int> predictions() const
    {
        std::vector<int> all;
        for (int i = 0; i < collection().hd_dev_cnt; ++i) {
            all.push_back(collection().pHDDevTbl[i].SmartPredict);
        }
        return all;
    }

    TraceRecorder trace_;
    std::unique_ptr<sim::Machine> machine_;
    std::optional<Collection> collected_{std::in_place};
};

namespace inventory {

using nlohmann::json;

// An ATA disk with a serial number behind which nothing follows.
inline json disk(int id, const std::string &serial)
{
    return {{"id", id}, {"ata", true}, {"serial", serial}, {"identifyWords", {{"20", 0}}}};
}

// Lists, because compilers differ in what a json value in braces is: an array of it, or itself.
inline json host(int number, const std::string &driver, const std::vector<json> &devices)
{
    return {{"number", number}, {"driver", driver}, {"devices", json(devices)}};
}

// A machine on which ahci is managed.
inline json machine(const std::vector<json> &hosts)
{
    return {{"hosts", json(hosts)}, {"files", {{"storage.inf", "ahci\n"}}}};
}

} // namespace inventory
