// SPDX-License-Identifier: Apache-2.0
// Time of a collection on a machine whose disks take time for every request: at least as much as the disks take. For
// programs that link the provider's objects.
#pragma once

#include "collect/collector.h"
#include "scenarios/scenario.h"
#include "store/arrays.h"

#include <chrono>
#include <sys/prctl.h>

using namespace tavstrg;

namespace scenario {

constexpr std::chrono::milliseconds kDeviceLatency{2};

// A machine of n managed ATA disks with SMART on, each of which takes kDeviceLatency for every request.
inline std::string machineOfSlowDisks(size_t n)
{
    nlohmann::json machine = machines::disks(n);
    machines::forEachDevice(machine, [](nlohmann::json &disk) { disk["delayMs"] = kDeviceLatency.count(); });
    return machines::text(machine);
}

struct CollectionTime {
    bool done = false;        // the collection succeeded and found every disk
    double wallSeconds = 0;   // from its start to its end
    size_t requests = 0;      // that reached the disks
    size_t smartCommands = 0; // of these

    double deviceSeconds() const
    {
        return static_cast<double>(requests) * std::chrono::duration<double>(kDeviceLatency).count();
    }
    // 1 is a collection that does nothing but wait for the disks.
    double ratio() const { return requests == 0 ? 0 : wallSeconds / deviceSeconds(); }
};

inline bool isSmartCommand(const sim::Command &command)
{
    constexpr uint8_t kSmart = 0xB0;
    constexpr uint8_t kAtaPassThrough16 = 0x85;
    const std::vector<uint8_t> &bytes = command.bytes;
    return bytes.size() == 16 ? bytes[0] == kAtaPassThrough16 && bytes[14] == kSmart
                              : !bytes.empty() && bytes[0] == kSmart;
}

// One collection with SMART mode 1. The thread's timer slack is set to 1 ns first: otherwise the sleep of a simulated
// device would take some 50 us longer.
inline CollectionTime timeCollection(sim::Machine &machine, int disks)
{
    ::prctl(PR_SET_TIMERSLACK, 1UL); // ns
    machine.forgetCommands();
    OwnedRecords records;
    CollectionTime time;
    const auto start = std::chrono::steady_clock::now();
    time.done = strgGetCurrentInfo(1, records.dat) == 0;
    time.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    time.done = time.done && records.dat[TAV_CID_STRG_HDD].datNum == disks;
    for (const sim::Command &command : machine.commands()) {
        ++time.requests;
        time.smartCommands += isSmartCommand(command) ? 1 : 0;
    }
    return time;
}

} // namespace scenario
