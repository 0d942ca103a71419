// SPDX-License-Identifier: Apache-2.0
#include "monitor/disk_changes.h"

#include "runtime/field_text.h"

#include <algorithm>

using namespace tavstrg;

namespace {

constexpr int16_t kSmartGood = 0; // SmartStatus
constexpr int16_t kSmartFailing = 1;

constexpr int32_t kNobody = -1;   // no disk of the other list
constexpr int32_t kSamePath = -2; // another path to a disk that is earlier in the list

template <size_t N> bool sameKnown(const char (&left)[N], const char (&right)[N])
{
    return left[0] != '\0' && fieldText(left) == fieldText(right);
}

template <size_t N> bool contradict(const char (&left)[N], const char (&right)[N])
{
    return left[0] != '\0' && right[0] != '\0' && fieldText(left) != fieldText(right);
}

bool sameSerial(const DiskFacts &left, const DiskFacts &right)
{
    return sameKnown(left.serial, right.serial);
}

// Units of one device may share its serial number; their worldwide names then differ.
bool sameUnit(const DiskFacts &left, const DiskFacts &right)
{
    return sameSerial(left, right) && !contradict(left.wwid, right.wwid);
}

bool sameWwid(const DiskFacts &left, const DiskFacts &right)
{
    return sameKnown(left.wwid, right.wwid) && !contradict(left.serial, right.serial);
}

bool hasIdentity(const DiskFacts &facts)
{
    return facts.serial[0] != '\0' || facts.wwid[0] != '\0';
}

bool sameAddress(const DiskFacts &left, const DiskFacts &right)
{
    return fieldText(left.address) == fieldText(right.address);
}

bool samePlace(const DiskFacts &left, const DiskFacts &right)
{
    return (!hasIdentity(left) || !hasIdentity(right)) && sameAddress(left, right) &&
           fieldText(left.model) == fieldText(right.model);
}

// The identity in words, for the disk that a replacement took the place of.
std::string_view identityText(const DiskFacts &facts)
{
    return facts.serial[0] != '\0' ? fieldText(facts.serial) : fieldText(facts.wwid);
}

// The disks of two passes and which is which. Entries are positions in the other list, kNobody or kSamePath.
struct Matching {
    std::span<const KnownDisk> known;
    std::span<const SeenDisk> seen;
    Table<int32_t> ofKnown;
    Table<int32_t> ofSeen;
    Table<int32_t> before; // for a new disk: the known disk whose place it took

    bool prepare()
    {
        const auto fill = [](Table<int32_t> &table, size_t size) {
            const bool made = table.reserve(size);
            while (made && table.append(kNobody)) {
            }
            return made;
        };
        return fill(ofKnown, known.size()) && fill(ofSeen, seen.size()) && fill(before, seen.size());
    }
};

void findPaths(Matching &m)
{
    for (size_t i = 0; i < m.seen.size(); ++i) {
        for (size_t j = 0; j < i && m.ofSeen[i] == kNobody; ++j) {
            if (sameUnit(m.seen[i].facts, m.seen[j].facts) || sameWwid(m.seen[i].facts, m.seen[j].facts)) {
                m.ofSeen[i] = kSamePath;
            }
        }
    }
}

template <class Same> void match(Matching &m, Same same)
{
    for (size_t i = 0; i < m.seen.size(); ++i) {
        for (size_t k = 0; k < m.known.size() && m.ofSeen[i] == kNobody; ++k) {
            if (m.ofKnown[k] == kNobody && same(m.known[k].facts, m.seen[i].facts)) {
                m.ofSeen[i] = static_cast<int32_t>(k);
                m.ofKnown[k] = static_cast<int32_t>(i);
            }
        }
    }
}

bool isNew(const Matching &m, size_t i)
{
    return m.ofSeen[i] == kNobody && m.before[i] == kNobody;
}

void replace(Matching &m, size_t k, size_t i)
{
    m.before[i] = static_cast<int32_t>(k);
    m.ofKnown[k] = static_cast<int32_t>(i);
}

void pairByAddress(Matching &m)
{
    for (size_t i = 0; i < m.seen.size(); ++i) {
        for (size_t k = 0; k < m.known.size() && isNew(m, i); ++k) {
            if (m.ofKnown[k] == kNobody && sameAddress(m.known[k].facts, m.seen[i].facts)) {
                replace(m, k, i);
            }
        }
    }
}

// As many gone as new on the controller of a known disk.
bool isSwap(const Matching &m, uint16_t controller)
{
    size_t gone = 0;
    for (size_t k = 0; k < m.known.size(); ++k) {
        gone += m.ofKnown[k] == kNobody && m.known[k].facts.controller == controller ? 1 : 0;
    }
    size_t added = 0;
    for (size_t i = 0; i < m.seen.size(); ++i) {
        added += isNew(m, i) && m.seen[i].facts.controller == controller ? 1 : 0;
    }
    return gone == added;
}

void pairByController(Matching &m)
{
    for (size_t k = 0; k < m.known.size(); ++k) {
        const uint16_t controller = m.known[k].facts.controller;
        if (m.ofKnown[k] != kNobody || !isSwap(m, controller)) {
            continue;
        }
        for (size_t i = 0; i < m.seen.size() && m.ofKnown[k] == kNobody; ++i) {
            if (isNew(m, i) && m.seen[i].facts.controller == controller) {
                replace(m, k, i);
            }
        }
    }
}

// The book that is being made.
struct Making {
    DiskBook &book;

    void add(DiskChange change, const DiskFacts &disk, std::string_view former = {})
    {
        DiskEvent *const event = book.events.append(); // there is room for all that can happen
        event->delivery = Delivery::waiting;
        event->change = change;
        event->number = book.next++;
        event->disk = disk;
        copyText(event->former, former);
    }
};

// Facts of a disk in this pass; what a disk that cannot be asked does not say is as it was.
DiskFacts mergedFacts(const DiskFacts &known, const DiskFacts &seen)
{
    DiskFacts facts = seen;
    if (facts.serial[0] == '\0') {
        copyText(facts.serial, fieldText(known.serial));
    }
    if (facts.wwid[0] == '\0') {
        copyText(facts.wwid, fieldText(known.wwid));
    }
    return facts;
}

void judge(KnownDisk &disk, const SeenDisk &seen, Making &making)
{
    if (!seen.asked) {
        return;
    }
    if (seen.smartStatus != kSmartGood && seen.smartStatus != kSmartFailing) {
        if (disk.reading == Reading::readable) {
            disk.reading = Reading::unreadable;
            making.add(DiskChange::unreadable, disk.facts);
        }
        return;
    }
    if (disk.reading == Reading::unreadable) {
        making.add(DiskChange::readable, disk.facts);
    }
    disk.reading = Reading::readable;
    if (seen.smartStatus == kSmartFailing && disk.verdict != Verdict::failing) {
        making.add(DiskChange::failing, disk.facts);
    }
    disk.verdict = seen.smartStatus == kSmartFailing ? Verdict::failing : Verdict::good;
}

// What the paths to one disk say together: failing if one says so, unreadable if all are.
SeenDisk overAllPaths(const Matching &m, size_t i)
{
    SeenDisk disk = m.seen[i];
    for (size_t j = i + 1; j < m.seen.size(); ++j) {
        const SeenDisk &other = m.seen[j];
        const bool same =
            m.ofSeen[j] == kSamePath && (sameUnit(disk.facts, other.facts) || sameWwid(disk.facts, other.facts));
        if (same && other.asked && other.smartStatus >= kSmartGood &&
            (!disk.asked || disk.smartStatus < other.smartStatus)) {
            disk.asked = true;
            disk.smartStatus = other.smartStatus;
        }
    }
    return disk;
}

void takeWaiting(const DiskBook &last, DiskBook &next)
{
    const auto waits = [](const DiskEvent &event) { return event.delivery != Delivery::done; };
    const auto waiting = static_cast<size_t>(std::ranges::count_if(last.events.entries(), waits));
    size_t surplus = waiting > kMostEvents ? waiting - kMostEvents : 0;
    for (const DiskEvent &event : last.events.entries()) {
        if (waits(event) && (surplus == 0 || surplus-- == 0)) {
            next.events.append(event);
        }
    }
}

void takeGone(const Matching &m, Making &making)
{
    for (size_t k = 0; k < m.known.size(); ++k) {
        if (m.ofKnown[k] == kNobody) {
            making.add(DiskChange::removed, m.known[k].facts);
        }
    }
}

void takeSeen(const Matching &m, bool first, Making &making)
{
    for (size_t i = 0; i < m.seen.size(); ++i) {
        if (m.ofSeen[i] == kSamePath) {
            continue;
        }
        KnownDisk *const disk = making.book.disks.append();
        if (m.ofSeen[i] >= 0) {
            *disk = m.known[static_cast<size_t>(m.ofSeen[i])];
            disk->facts = mergedFacts(disk->facts, m.seen[i].facts);
        } else {
            disk->facts = m.seen[i].facts;
            if (m.before[i] >= 0) {
                const DiskFacts &before = m.known[static_cast<size_t>(m.before[i])].facts;
                making.add(DiskChange::replaced, disk->facts, identityText(before));
            } else if (!first) {
                making.add(DiskChange::added, disk->facts);
            }
        }
        judge(*disk, overAllPaths(m, i), making);
    }
}

} // namespace

bool tavstrg::compareDisks(const DiskBook &last, bool first, std::span<const SeenDisk> seen, DiskBook &next)
{
    Matching m{last.disks.entries(), seen, {}, {}, {}};
    constexpr size_t kMostPerDisk = 3; // added or replaced, readable or unreadable, failing
    const size_t most = last.disks.size() + kMostPerDisk * seen.size();
    if (!m.prepare() || !next.disks.reserve(seen.size()) || !next.events.reserve(last.events.size() + most)) {
        return false;
    }
    findPaths(m);
    match(m, sameUnit);
    match(m, sameWwid);
    match(m, samePlace);
    match(m, sameSerial); // another kernel may give another worldwide name
    pairByAddress(m);
    pairByController(m);
    next.next = last.next;
    takeWaiting(last, next);
    Making making{next};
    takeGone(m, making);
    takeSeen(m, first, making);
    return true;
}

bool tavstrg::differs(const DiskBook &last, const DiskBook &next)
{
    return last.next != next.next || !std::ranges::equal(last.disks.entries(), next.disks.entries());
}
