// SPDX-License-Identifier: Apache-2.0
#include "disks/book/book.h"

#include "disks/ask/verdict.h"
#include "runtime/field_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace tavstrg::disks {
namespace {

bool isVerdict(HealthState state)
{
    return state == HealthState::good || state == HealthState::warning || state == HealthState::failing ||
           state == HealthState::off;
}

void placeOf(const Disk &disk, char (&place)[sizeof BookEntry::place])
{
    if (disk.bay[0] != '\0') {
        copyText(place, disk.bay);
    } else {
        std::snprintf(place, sizeof place, "%s %s", disk.adapter, disk.address);
    }
}

BookEntry *findEntry(Array<BookEntry> &entries, int32_t count, const char *id)
{
    auto *const end = entries.begin() + count;
    auto *const found = std::lower_bound(entries.begin(), end, id, [](const BookEntry &entry, const char *key) {
        return std::strcmp(entry.id, key) < 0;
    });
    return found == end || std::strcmp(found->id, id) != 0 ? nullptr : found;
}

void sortEntries(Array<BookEntry> &entries)
{
    std::sort(entries.begin(), entries.end(),
              [](const BookEntry &a, const BookEntry &b) { return std::strcmp(a.id, b.id) < 0; });
}

Event *addEvent(Array<Event> &events, EventKind kind, const BookEntry &entry, int64_t now)
{
    Event *const event = events.append();
    if (event != nullptr) {
        event->kind = kind;
        event->time = now;
        copyText(event->id, entry.id);
        copyText(event->name, entry.name);
        copyText(event->serial, entry.serial);
        copyText(event->reason, entry.health.reason);
    }
    return event;
}

// The event that a new verdict is; a disk whose SMART was switched off is no news of its health.
bool addVerdict(BookEntry &entry, HealthState now, int64_t time, Array<Event> &events)
{
    const HealthState before = entry.verdict;
    entry.verdict = now;
    const bool wasFine = before == HealthState::unknown || before == HealthState::good || before == HealthState::off;
    const bool isFine = now == HealthState::good || now == HealthState::off;
    if (before == now || (wasFine && isFine)) {
        return true;
    }
    const EventKind kind = now == HealthState::failing   ? EventKind::failing
                           : now == HealthState::warning ? EventKind::warning
                                                         : EventKind::good;
    return addEvent(events, kind, entry, time) != nullptr;
}

bool addReadability(BookEntry &entry, bool unreadable, int64_t time, Array<Event> &events)
{
    if (entry.unreadable == unreadable) {
        return true;
    }
    entry.unreadable = unreadable;
    return addEvent(events, unreadable ? EventKind::unreadable : EventKind::readable, entry, time) != nullptr;
}

// A disk that was asked has new readings; another one keeps its last.
void exchangeReadings(BookEntry &entry, Disk &disk, bool asked)
{
    if (asked) {
        entry.readings = disk.readings;
        std::memset(entry.readings.attributes, 0, sizeof entry.readings.attributes);
        entry.readings.attributeCount = 0;
        entry.lastAsked = disk.lastAsked;
        return;
    }
    const PowerState power = disk.readings.power;
    disk.readings = entry.readings;
    disk.readings.power = power;
    disk.lastAsked = entry.lastAsked;
}

// Whether the last verdict still holds for a disk that sleeps: what wears it out stays, its temperature does not.
bool isLastingVerdict(const BookEntry &entry)
{
    if (entry.verdict != HealthState::warning) {
        return entry.verdict == HealthState::failing;
    }
    // The reason of the warning is known in the next pass only.
    return entry.health.state == HealthState::warning ? !isOfTemperature(entry.health) : showWear(entry.readings);
}

// Sleep heals no disk: an alert about one that fails would end whenever it falls asleep.
void keepBadHealth(const BookEntry &entry, Disk &disk)
{
    if (disk.health.state != HealthState::asleep || !isLastingVerdict(entry)) {
        return;
    }
    if (entry.health.state == entry.verdict) {
        disk.health = entry.health;
    } else { // it did not answer, or was not asked, before it fell asleep
        char source[sizeof Health::source];
        copyText(source, disk.health.source);
        setHealth(disk.health, entry.verdict, source, "was so when it answered last; it sleeps now");
    }
}

// ---- disks that were not asked ----

// A disk that answers may tell a better id than the kernel knows: one without a number in sysfs, or one behind a USB
// bridge. While it sleeps or hangs it has only the id that the kernel knows.

bool isFoundWhereItWas(const BookEntry &entry, const Disk &disk)
{
    char place[sizeof BookEntry::place];
    placeOf(disk, place);
    return entry.present && std::strcmp(entry.foundId, disk.foundId) == 0 && std::strcmp(entry.place, place) == 0 &&
           entry.sizeBytes.known == disk.sizeBytes.known && entry.sizeBytes.value == disk.sizeBytes.value;
}

BookEntry *findWhereItWas(Array<BookEntry> &entries, const Disk &disk)
{
    auto *const found = std::find_if(entries.begin(), entries.end(),
                                     [&disk](const BookEntry &entry) { return isFoundWhereItWas(entry, disk); });
    return found == entries.end() ? nullptr : found;
}

bool hasDisk(const Array<Disk> &disks, const char *id)
{
    return std::any_of(disks.begin(), disks.end(), [id](const Disk &disk) { return std::strcmp(disk.id, id) == 0; });
}

void takeIdentity(Disk &disk, const BookEntry &entry)
{
    copyText(disk.id, entry.id);
    copyText(disk.model, entry.model);
    copyText(disk.serial, entry.serial);
    disk.idSource = IdentitySource::serialNumber; // the kernel knows all better ones
}

// Of a disk that has no entry of the last pass under its own id.
BookEntry *otherEntryOf(Array<BookEntry> &entries, const Disk &disk)
{
    const BookEntry *const own = findEntry(entries, entries.count(), disk.id);
    return disk.foundId[0] == '\0' || (own != nullptr && own->present) ? nullptr : findWhereItWas(entries, disk);
}

// Gives disks that were not asked their ids of before.
void keepIds(Array<BookEntry> &entries, Array<Disk> &disks)
{
    for (Disk &disk : disks) {
        if (isVerdict(disk.health.state) || std::strcmp(disk.id, disk.foundId) != 0) {
            continue;
        }
        const BookEntry *const entry = otherEntryOf(entries, disk);
        if (entry != nullptr && !hasDisk(disks, entry->id)) {
            takeIdentity(disk, *entry);
        }
    }
}

// Gives entries of disks that never answered, and do now, the ids that these have told.
void renameEntries(Array<BookEntry> &entries, const Array<Disk> &disks)
{
    for (const Disk &disk : disks) {
        if (std::strcmp(disk.id, disk.foundId) == 0 || findEntry(entries, entries.count(), disk.id) != nullptr) {
            continue;
        }
        BookEntry *const entry = otherEntryOf(entries, disk);
        if (entry != nullptr && !entry->lastAsked && std::strcmp(entry->id, disk.foundId) == 0) {
            copyText(entry->id, disk.id);
            sortEntries(entries);
        }
    }
}

// Whether a pass finds what is worth a write of the book, which may wake a disk: not that one fell asleep or woke up.
bool isChange(const BookEntry &entry, const Disk &disk)
{
    const HealthState before = entry.health.state;
    const HealthState now = disk.health.state;
    return !entry.health.since || std::strcmp(entry.foundId, disk.foundId) != 0 ||
           (before != now && before != HealthState::asleep && now != HealthState::asleep);
}

bool enterDisk(BookEntry &entry, Disk &disk, int64_t now, Array<Event> &events)
{
    const bool asked = isVerdict(disk.health.state);
    keepBadHealth(entry, disk);
    copyText(entry.id, disk.id);
    copyText(entry.foundId, disk.foundId);
    copyText(entry.name, disk.name);
    copyText(entry.model, disk.model);
    copyText(entry.serial, disk.serial);
    placeOf(disk, entry.place);
    entry.sizeBytes = disk.sizeBytes;
    const bool sameState = entry.health.since && entry.health.state == disk.health.state;
    const int64_t since = sameState ? entry.health.since.value : now;
    entry.present = true;
    entry.lastSeen = now;
    entry.health = disk.health;
    entry.health.since.set(since);
    exchangeReadings(entry, disk, asked);
    disk.health.since.set(since);
    disk.firstSeen.set(entry.firstSeen);
    // Neither sleep nor a missing permission says anything about the disk.
    const HealthState state = disk.health.state;
    if (state == HealthState::unreadable) {
        return addReadability(entry, true, now, events);
    }
    return !asked || (addReadability(entry, false, now, events) && addVerdict(entry, state, now, events));
}

// An entry that went in this pass and was where the new disk is; null if there is none. Deliberate: no times are
// compared, for the clock may have been set back.
const BookEntry *replacedBy(const Array<BookEntry> &entries, const Array<bool> &wasPresent, const BookEntry &added)
{
    for (int32_t i = 0; i < wasPresent.count(); ++i) {
        if (wasPresent[i] && !entries[i].present && std::strcmp(entries[i].place, added.place) == 0) {
            return &entries[i];
        }
    }
    return nullptr;
}

// A pass that is being entered.
struct Entering {
    Book &book;
    Array<Disk> &disks;
    int64_t now;
    int32_t known; // entries of earlier passes, sorted; new ones follow
    Array<Event> &events;
};

bool reportRemoved(const Entering &pass, const Array<bool> &wasPresent)
{
    for (int32_t i = 0; i < pass.known; ++i) {
        const BookEntry &entry = pass.book.entries[i];
        if (wasPresent[i] && !entry.present && addEvent(pass.events, EventKind::removed, entry, pass.now) == nullptr) {
            return false;
        }
    }
    return true;
}

bool reportAdded(const Entering &pass, const Array<bool> &wasPresent, const BookEntry &entry)
{
    if (pass.book.fresh) {
        return true;
    }
    const BookEntry *const other = replacedBy(pass.book.entries, wasPresent, entry);
    Event *const event =
        addEvent(pass.events, other == nullptr ? EventKind::added : EventKind::replaced, entry, pass.now);
    if (event != nullptr && other != nullptr) {
        copyText(event->otherId, other->id);
        copyText(event->otherSerial, other->serial);
    }
    return event != nullptr;
}

void sortAndForget(Book &book, int64_t now)
{
    Array<BookEntry> &entries = book.entries;
    auto *const end = std::remove_if(entries.begin(), entries.end(), [now](const BookEntry &entry) {
        return !entry.present && entry.lastSeen < now - kKeptSeconds;
    });
    entries.shrink(static_cast<int32_t>(end - entries.begin()));
    sortEntries(entries);
}

// Enters each disk; those that come, also again, are reported at once, with the rest of the book as it was.
bool enterAll(const Entering &pass, const Array<bool> &wasPresent)
{
    for (Disk &disk : pass.disks) {
        BookEntry *entry = findEntry(pass.book.entries, pass.known, disk.id);
        const bool came = entry == nullptr || !wasPresent[static_cast<int32_t>(entry - pass.book.entries.begin())];
        if (entry == nullptr) {
            entry = pass.book.entries.count() < kMostEntries ? pass.book.entries.append() : nullptr;
            if (entry == nullptr) {
                return false;
            }
            entry->firstSeen = pass.now;
        }
        pass.book.changed = pass.book.changed || isChange(*entry, disk);
        Array<Event> events;
        if (!enterDisk(*entry, disk, pass.now, events) || (came && !reportAdded(pass, wasPresent, *entry))) {
            return false;
        }
        for (const Event &event : events) {
            Event *const to = pass.events.append();
            if (to == nullptr) {
                return false;
            }
            *to = event;
        }
    }
    return true;
}

} // namespace

const char *nameOf(EventKind kind)
{
    static constexpr const char *kNames[] = {"added",   "removed", "replaced",   "failing",
                                             "warning", "good",    "unreadable", "readable"};
    const auto at = static_cast<size_t>(kind);
    return at < std::size(kNames) ? kNames[at] : "unknown";
}

bool enterPass(Book &book, Array<Disk> &disks, int64_t now, Array<Event> &events)
{
    keepIds(book.entries, disks);
    renameEntries(book.entries, disks);
    Array<bool> wasPresent;
    for (BookEntry &entry : book.entries) {
        bool *const was = wasPresent.append();
        if (was == nullptr) {
            return false;
        }
        *was = entry.present;
        entry.present = false;
    }
    // Disks that stay are marked before it is decided which went.
    for (const Disk &disk : disks) {
        if (BookEntry *const entry = findEntry(book.entries, book.entries.count(), disk.id)) {
            entry->present = true;
        }
    }
    book.changed = false;
    const Entering pass{book, disks, now, book.entries.count(), events};
    if (!reportRemoved(pass, wasPresent) || !enterAll(pass, wasPresent)) {
        return false;
    }
    sortAndForget(book, now);
    book.fresh = false;
    return true;
}

} // namespace tavstrg::disks
