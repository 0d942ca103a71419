// SPDX-License-Identifier: Apache-2.0
// What is known about each disk from pass to pass: when it was first and last seen, its last health and readings, and
// since when. From one pass to the next it finds what happened to the disks.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"

#include <cstdint>

namespace tavstrg::disks {

struct BookEntry {
    char id[sizeof Disk::id];
    char foundId[sizeof Disk::foundId];
    char name[kNameRoom];
    char model[sizeof Disk::model];
    char serial[sizeof Disk::serial];
    char place[128]; // bay, or adapter and address: where a disk that replaces this one would be
    Maybe<uint64_t> sizeBytes;
    bool present;      // in the last pass
    int64_t firstSeen; // seconds since 1970
    int64_t lastSeen;
    Maybe<int64_t> lastAsked;
    Health health;       // of the last pass; since is known
    HealthState verdict; // the last of good, warning, failing and off; unknown: none yet
    bool unreadable;     // reported as such, and not as readable again
    Readings readings;   // the last ones, without attributes
};

enum class EventKind : uint8_t { added, removed, replaced, failing, warning, good, unreadable, readable };
const char *nameOf(EventKind kind);

// Something that happened to a disk; reported once.
struct Event {
    EventKind kind;
    int64_t time;
    char id[sizeof Disk::id];
    char name[kNameRoom];
    char serial[sizeof Disk::serial];
    char otherId[sizeof Disk::id]; // of a replaced disk: the one that was there before, and its serial number
    char otherSerial[sizeof Disk::serial];
    char reason[sizeof Health::reason];
};

constexpr int32_t kMostEntries = 65536;
constexpr int64_t kKeptSeconds = int64_t{366} * 24 * 3600; // for which a disk that went is remembered

// Entries, sorted by id.
struct Book {
    Array<BookEntry> entries;
    bool fresh = true;    // begun with this pass: disks that are there are not reported as added
    bool changed = false; // by the last pass: a disk is new, or has another state and neither fell asleep nor woke up
};

// Takes a pass over: enters what was found, gives the disks what the book knows (firstSeen, health.since, and, where a
// disk was not asked or did not answer, its last readings and lastAsked; one that fails, or has a warning
// that does not pass by itself, is so still while it sleeps), and appends events in the order of the disks.
// A disk that was not asked and has no entry of its own gets id, model and serial number of the entry of the last pass
// that the kernel knew by the same id, of the same size and in the same place.
// The ids of the disks differ. False if memory is short: book and disks are then to be dropped.
bool enterPass(Book &book, Array<Disk> &disks, int64_t now, Array<Event> &events);

} // namespace tavstrg::disks
