// SPDX-License-Identifier: Apache-2.0
// /proc/ioports: the input is the file and a driver's name.
#include "devcmd/kernel/irq_ports.h"
#include "devcmd/kernel/proc_text.h"
#include "fuzz/fuzz.h"
#include "fuzz/lists.h"
#include "fuzz/machine.h"

#include <cstdio>

using namespace tavstrg;

using fuzz::require;

namespace {

void checkRange(unsigned long start, unsigned long end)
{
    char line[64];
    std::snprintf(line, sizeof line, "  %04lx-%04lx : driver", start, end);
    const std::optional<PortRange> again = parseIoportLine(line);
    require(again && again->start == start && again->end == end, "a range comes back");
    require(parseIoportStart(line) == start, "both read the same start");
}

// Number of ranges.
int checkFile(const char *name, unsigned long start)
{
    IoportRange *head = nullptr;
    int32_t found = -1;
    require(GetIoports(name, static_cast<long>(start), &head, &found) == 0, "a file that is there can be read");
    const int ranges = fuzz::lengthOf(head, [](const IoportRange &range, int) { checkRange(range.start, range.end); });
    require(found == (ranges > 0 ? 1 : 0), "found tells whether there is a range");
    require(name != nullptr || (ranges <= 1 && (ranges == 0 || head->start == start)),
            "at most one range begins where it was asked for");
    FreeIoports(head);
    return ranges;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Parts parts({data, size});
    const std::string_view content = parts.next();
    const fuzz::ExactString name(parts.rest());
    static fuzz::FuzzedMachine machine;
    machine.file("/proc/ioports", content);
    for (const char *const search : {name.text(), "ahci"}) {
        require(static_cast<size_t>(checkFile(search, 0)) <= fuzz::linesIn(content), "a line is at most one range");
    }
    checkFile(nullptr, parseIoportStart(content).value_or(0));
    machine.requireAllClosed();
    return 0;
}
