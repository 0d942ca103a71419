// SPDX-License-Identifier: Apache-2.0
// /proc/interrupts: the input is the file and a driver's name.
#include "devcmd/kernel/irq_ports.h"
#include "devcmd/kernel/proc_text.h"
#include "fuzz/fuzz.h"
#include "fuzz/machine.h"
#include "runtime/holders.h"

#include <algorithm>
#include <cstdio>

using namespace tavstrg;

using fuzz::require;

namespace {

constexpr uint32_t kUnknownIrq = 0xFFFFFFFE;

// Reads a text line by line: none is longer than what is looked at, none is lost.
void checkLines(std::string_view text)
{
    if (text.empty()) {
        return; // no stream can be opened on nothing
    }
    fuzz::Exact copy(text);
    const FilePtr file(::fmemopen(const_cast<char *>(copy.text().data()), text.size(), "r"));
    require(static_cast<bool>(file), "a stream can be opened");
    ProcLine line;
    size_t left = text.size() + 1;
    size_t lines = 0;
    while (readProcLine(file.get(), line, left)) {
        require(line.length <= kProcLineMax && line.text[line.length] == '\0', "a line is cut and terminated");
        line.removeNewline();
        require(line.view().find('\n') == std::string_view::npos, "a newline ends a line");
        InterruptSearch search = interruptSearch("");
        parseInterruptLine(line.view(), search);
        ++lines;
    }
    const auto newlines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    require(lines == newlines + (text.ends_with('\n') ? 0 : 1), "every line is read");
}

void checkSearch(const char *name, std::string_view content)
{
    uint32_t irq = 0;
    int32_t found = -1;
    require(GetIRQ(name, &irq, &found) == 0, "a file that is there can be read");
    require(found == 0 ? irq == kUnknownIrq : found == 1, "what is not found is unknown");
    require(found == 0 || content.find(interruptSearch(name).key) != std::string_view::npos,
            "an interrupt is of a line that has the name");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Parts parts({data, size});
    const std::string_view content = parts.next();
    const fuzz::ExactString name(parts.rest());
    checkLines(content);
    static fuzz::FuzzedMachine machine;
    machine.file("/proc/interrupts", content);
    for (const char *const search : {name.text(), "ahci", "i80422"}) {
        checkSearch(search, content);
    }
    machine.requireAllClosed();
    return 0;
}
