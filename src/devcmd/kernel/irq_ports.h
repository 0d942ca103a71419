// SPDX-License-Identifier: Apache-2.0
// Interrupt number and I/O port ranges of a driver, from /proc/interrupts and /proc/ioports.
#pragma once

#include <cstdint>
#include <string_view>
struct IoportRange {
    unsigned long start;
    unsigned long end;
    IoportRange *next;
};

// Interrupt of the first line that mentions name; "i80421" and "i80422" stand for the first and second "i8042" line.
// *irq is 0xFFFFFFFE and *found 0 when there is none. 0, or -1 for null arguments or a file that cannot be opened.
int GetIRQ(const char *name, uint32_t *irq, int32_t *found);
// Ranges of the lines that mention name, in file order; with a null name the one range that begins at start. 0, or -1.
int GetIoports(const char *name, long start, IoportRange **head, int32_t *found);
void FreeIoports(IoportRange *head);
