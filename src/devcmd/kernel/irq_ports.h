// SPDX-License-Identifier: Apache-2.0
// Interrupt number and I/O port ranges of a driver, from /proc/interrupts and /proc/ioports.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavstrg {

// Bytes of /proc/interrupts and of /proc/ioports that are read; what follows counts as not there. 4096 processors with
// a thousand interrupts need 45 MiB; a thousand port ranges need 40 KiB.
constexpr size_t kMaxInterrupts = size_t{64} << 20;
constexpr size_t kMaxIoports = size_t{1} << 20;

} // namespace tavstrg

struct IoportRange {
    unsigned long start;
    unsigned long end;
    IoportRange *next;
};

// Interrupt of the first line that mentions name; "i80421" and "i80422" stand for the first and second "i8042" line.
// *irq is 0xFFFFFFFE and *found 0 if there is none. 0, or -1 for null arguments or a file that cannot be opened.
int GetIRQ(const char *name, uint32_t *irq, int32_t *found);
// Ranges of the lines that mention name, in file order; with a null name the one range that begins at start. 0, or -1.
int GetIoports(const char *name, long start, IoportRange **head, int32_t *found);
void FreeIoports(IoportRange *head);
