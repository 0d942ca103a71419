// SPDX-License-Identifier: Apache-2.0
#include "devcmd/kernel/irq_ports.h"

#include "devcmd/kernel/proc_text.h"
#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/memory.h"
#include "runtime/trace.h"

using namespace tavstrg;

namespace {

constexpr char kInterrupts[] = "/proc/interrupts";
constexpr uint32_t kUnknownIrq = 0xFFFFFFFE;

constexpr char kIoports[] = "/proc/ioports";
constexpr size_t kShortestLine = 3; // characters, the newline included

void traceBound(const char *path, size_t left)
{
    if (left == 0) {
        TRACE(kFailure, "[%s] is too long, the rest is not read Failure!!", path);
    }
}

// Whether a line is one of those that were asked for: by the driver's name, or by the range's start when name is null.
bool isWantedLine(std::string_view line, const char *name, unsigned long start)
{
    return name != nullptr ? line.find(name) != std::string_view::npos : parseIoportStart(line) == start;
}

// Appends a node for each line that was asked for, or for the first one only when name is null. False when memory is
// short; the nodes made until then are in the list. Traces under the name of its caller.
bool appendRanges(std::FILE *file, const char *name, unsigned long start, IoportRange **tail)
{
    size_t left = kMaxIoports;
    ProcLine line;
    // Deliberate: a last line that no newline ends is not used.
    while (readProcLine(file, line, left) && line.complete) {
        if (line.length < kShortestLine) {
            continue;
        }
        line.removeNewline();
        if (!isWantedLine(line.view(), name, start)) {
            continue;
        }
        auto *node = static_cast<IoportRange *>(memalloc(static_cast<int32_t>(sizeof(IoportRange))));
        if (node == nullptr) {
            return TRACED(false, kFailure, "malloc failure");
        }
        const std::optional<PortRange> range = parseIoportLine(line.view());
        if (!range) {
            memfree(node);
            continue;
        }
        *node = {range->start, range->end, nullptr};
        *tail = node;
        tail = &node->next;
        TRACE(kDetail, "line=(%s) pTempInfo->start=(%lx) pTempInfo->end=(%lx)", static_cast<const char *>(line.text),
              node->start, node->end);
        if (name == nullptr) {
            break;
        }
    }
    traceBound(kIoports, left);
    return true;
}

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
    size_t left = kMaxInterrupts;
    ProcLine line;
    while (readProcLine(file.get(), line, left)) {
        if (const std::optional<uint32_t> number = parseInterruptLine(line.view(), search)) {
            *irq = *number;
            *found = 1;
            TRACE(kDetail, "name=[%s] irq=[%u] line=[%s]", name, *number, static_cast<const char *>(line.text));
            break;
        }
    }
    traceBound(kInterrupts, left);
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

int GetIoports(const char *name, long start, IoportRange **head, int32_t *found)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ name=[%s] start=[%lx]", name == nullptr ? "NULL" : name, static_cast<unsigned long>(start));
    if (found == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ dwflag is NULL");
    }
    *found = 0;
    if (head == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ head is NULL");
    }
    *head = nullptr;
    const FilePtr file(openProcText(kIoports));
    if (!file) {
        return TRACED(-1, kFailure, "_OUT_ fopen failed. [%s]", kIoports);
    }
    if (!appendRanges(file.get(), name, static_cast<unsigned long>(start), head)) {
        FreeIoports(*head);
        *head = nullptr;
        return TRACED(-1, kFailure, "_OUT_ return -1");
    }
    *found = *head != nullptr ? 1 : 0;
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

void FreeIoports(IoportRange *head)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    while (head != nullptr) {
        IoportRange *const next = head->next;
        memfree(head);
        head = next;
    }
    TRACE(kDetail, "_OUT_");
}
