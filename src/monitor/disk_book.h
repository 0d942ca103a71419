// SPDX-License-Identifier: Apache-2.0
// What the alerts about single disks are compared with: the disks of the last pass, and the events that are on their
// way. One text file, whose parsing and composing are here, without any I/O.
//
//     tavstrg-disks 1
//     next 18                                          number of the next event
//     disk good readable 1 SERIAL WWID MODEL NAME ADDRESS LABEL
//     event w 17 failing 1 SERIAL WWID MODEL NAME ADDRESS LABEL FORMER
//     end 53c1f0a2d4e6b788                             sum of all before it
//
// Blanks, control characters, "%" and bytes above 7E are written as %XX, an empty text as "-". The letter of an event
// is its delivery; it is changed in place and not part of the sum.
#pragma once

#include "runtime/table.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavstrg {

constexpr uint32_t kBookVersion = 1;

// Who a disk is and where. Texts are terminated; what is not known is empty.
struct DiskFacts {
    uint16_t controller; // its index in the inventory
    char serial[256];
    char wwid[256];
    char model[80];
    char name[64];    // the kernel's
    char address[64]; // as alerts show it
    char label[128];  // index, vendor, model and firmware as alerts show them

    bool operator==(const DiskFacts &) const = default;
};

enum class Verdict : uint8_t { unknown, good, failing };      // the last one that could be read
enum class Reading : uint8_t { never, readable, unreadable }; // "never": has not been readable yet

struct KnownDisk {
    Verdict verdict;
    Reading reading;
    DiskFacts facts;

    bool operator==(const KnownDisk &) const = default;
};

enum class DiskChange : uint8_t { added, removed, replaced, failing, unreadable, readable };

// How far an event is: waiting for its first attempt or, after a refusal, for another one; being handed over, so that
// after a restart nobody knows whether it arrived; accepted.
enum class Delivery : char { waiting = 'w', sending = 's', done = 'd' };

struct DiskEvent {
    Delivery delivery;
    DiskChange change;
    uint32_t number;   // of this event, from 1, in the order of the events
    size_t deliveryAt; // offset of its letter in the file
    DiskFacts disk;
    char former[256]; // replaced: serial number of the disk before, else its worldwide name
};

struct DiskBook {
    uint32_t next = 1;
    Table<KnownDisk> disks;
    Table<DiskEvent> events;
};

enum class BookState : uint8_t {
    good,
    newer,   // of a later version
    damaged, // not one of ours, cut, or changed
    noMemory,
};

// The text of a file into an empty book. After anything but good the book is not to be used.
BookState parseBook(std::string_view text, DiskBook &book);

// Bytes of the file.
size_t bookSize(const DiskBook &book);
// Writes the file into text (bookSize bytes) and notes where the events' letters are.
void composeBook(DiskBook &book, char *text);

std::string_view changeName(DiskChange change);

} // namespace tavstrg
