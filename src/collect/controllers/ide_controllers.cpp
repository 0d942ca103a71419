// SPDX-License-Identifier: Apache-2.0
// IDE channels in the controller tables.

#include "collect/base/flat_table.h"
#include "collect/base/text_scan.h"
#include "collect/collection/collection.h"
#include "collect/controllers/controller_build.h"
#include "devcmd/kernel/irq_ports.h"
#include "runtime/field_text.h"

using namespace tavstrg;

namespace {

struct RangeHolder {
    RangeHolder() = default;
    ~RangeHolder() { FreeIoports(head); }
    RangeHolder(const RangeHolder &) = delete;
    RangeHolder &operator=(const RangeHolder &) = delete;
    IoportRange *head = nullptr;
};

PortEntry newPort(int32_t index, const IoportRange &range)
{
    return {static_cast<uint64_t>(index), range.start, uint64_t{range.end} - range.start + 1};
}

struct BusRow {
    std::string_view text;
    uint16_t code;
};
constexpr BusRow kBuses[] = {{"isa", 2}, {"eisa", 3}, {"pci", 4}};
constexpr uint16_t kOtherBus = 1;

} // namespace

bool tavstrg::parseIDEChannelName(const char *name, int32_t *channel)
{
    TextScan scan{name};
    return scan.literal("ide") && scan.number(*channel);
}

ControllerEntry tavstrg::newIDEController(int32_t i, int32_t position, int32_t channel)
{
    ControllerEntry entry = newUnknownController(i);
    entry.InterfaceType = kInterfaceIde;
    entry.controllerNumber = static_cast<uint16_t>(channel);
    entry.numberInKind = static_cast<uint16_t>(position);
    entry.kindWord = 0xFFFE;
    copyText(entry.Model, "IDE Controller(ide)");
    return entry;
}

uint16_t GetIDEControllerBusType(std::string_view bus)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    uint16_t code = kOtherBus;
    for (const BusRow &row : kBuses) {
        if (row.text == bus) {
            code = row.code;
        }
    }
    return TRACED(code, kDetail, "_OUT_ ret=[%d]", code);
}

int GetControllerInterrupt(const char *channelName, ControllerEntry *entry)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ name=[%s]", channelName);
    uint32_t irq = 0;
    int32_t found = 0;
    if (GetIRQ(channelName, &irq, &found) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    entry->InterruptNumber = found == 0 ? kUnknownValue : irq;
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int GetControllerPort(const char *channelName, ControllerEntry *entry)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ name=[%s]", channelName);
    RangeHolder ranges;
    int32_t found = 0;
    if (GetIoports(channelName, -1, &ranges.head, &found) < 0) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    entry->portCount = 0;
    for (const IoportRange *range = ranges.head; range != nullptr; range = range->next) {
        if (!appendPort(collection(), newPort(collection().port_cnt + 1, *range))) {
            return TRACED(-1, kFailure, "_OUT_ (-1)");
        }
        if (entry->portCount++ == 0) {
            entry->firstPort = static_cast<uint16_t>(collection().port_cnt);
        }
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}

int MakeIDEController(int32_t i)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ i=[%d]", i);
    const int32_t position = i - collection().CtrlNumMib.TotalSCSIController + 1;
    if (!appendIDEController(collection(), {static_cast<uint16_t>(i + 1), static_cast<uint16_t>(position)})) {
        return TRACED(-1, kFailure, "_OUT_ (-1)");
    }
    return TRACED(0, kDetail, "_OUT_ (0)");
}
