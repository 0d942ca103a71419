// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/irq_ports.h"
#include "devcmd/kernel/proc_text.h"
#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

namespace {

constexpr char kInterrupts[] = "/proc/interrupts";
constexpr uint32_t kUnknownIrq = 0xFFFFFFFE;

} // namespace

int GetIRQ(const char *name, uint32_t *irq, int32_t *found)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ name=[%s]", name == nullptr ? "NULL" : name);
    if (name == nullptr || irq == nullptr || found == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param is NULL");
    }
    *found = 0;
    *irq = kUnknownIrq;
    const FilePtr file(openProcText(kInterrupts));
    if (!file) {
        return TRACED(-1, kFailure, "_OUT_ fopen failed. [%s]", kInterrupts);
    }
    InterruptSearch search = interruptSearch(name);
    ProcLine line;
    while (readProcLine(file.get(), line)) {
        if (const std::optional<uint32_t> number = parseInterruptLine(line.view(), search)) {
            *irq = *number;
            *found = 1;
            TRACE(kDetail, "name=[%s] irq=[%u] line=[%s]", name, *number, static_cast<const char *>(line.text));
            break;
        }
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
