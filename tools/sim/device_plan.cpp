// SPDX-License-Identifier: Apache-2.0
#include "sim/device_plan.h"

#include "sim/state.h"

#include <algorithm>

namespace sim {

namespace {

uint64_t nextRandom(uint64_t &state) // splitmix64
{
    state += 0x9E3779B97F4A7C15;
    uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

bool isOn(const Fault &fault, const RequestKind &kind)
{
    switch (fault.on) {
    case Kind::any:
        return kind.own != Kind::open;
    case Kind::ata:
        return kind.ata;
    case Kind::scsi:
        return kind.scsi;
    case Kind::nvme:
        return kind.nvme;
    default:
        return fault.on == kind.own;
    }
}

} // namespace

Plan planFor(Device &device, const RequestKind &kind)
{
    using std::chrono::duration;
    using std::chrono::duration_cast;
    using std::chrono::nanoseconds;
    Plan plan;
    plan.wait = std::chrono::milliseconds(kind.own == Kind::open ? 0 : device.is.delayMs);
    plan.hangs = device.held;
    device.seen.resize(device.is.faults.size());
    for (size_t i = 0; i < device.is.faults.size(); ++i) {
        const Fault &fault = device.is.faults[i];
        if (!isOn(fault, kind)) {
            continue;
        }
        const unsigned count = ++device.seen[i];
        const bool due = fault.nth != 0 ? count == fault.nth : count % std::max(fault.every, 1U) == 0;
        constexpr double kScale = 1.0 / 9007199254740992.0; // 2^-53: the upper bits as a number below 1
        if (!due || (fault.probability < 1 &&
                     static_cast<double>(nextRandom(device.random) >> 11) * kScale >= fault.probability)) {
            continue;
        }
        plan.wait +=
            std::chrono::milliseconds(fault.delayMs) + duration_cast<nanoseconds>(duration<double>(fault.hangSeconds));
        plan.hangs = plan.hangs || fault.hang;
        if (fault.fails() && !plan.failure.fails()) {
            plan.failure = fault;
        }
    }
    return plan;
}

void waitOut(std::unique_lock<std::mutex> &held, Device &device, const Plan &plan)
{
    if (plan.hangs) {
        ++device.waiting;
        modelChanged().notify_all(); // for awaitWaiting
        const unsigned before = device.releases;
        modelChanged().wait(held, [&] { return device.gone || device.releases != before; });
        --device.waiting;
        modelChanged().notify_all();
    }
    if (plan.wait.count() != 0) {
        modelChanged().wait_for(held, plan.wait, [&] { return device.gone; });
    }
}

} // namespace sim
