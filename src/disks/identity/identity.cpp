// SPDX-License-Identifier: Apache-2.0
#include "disks/identity/identity.h"

#include "runtime/field_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace tavstrg::disks {
namespace {

constexpr size_t kPageHeader = 4;
constexpr size_t kDesignatorHeader = 4;
constexpr uint8_t kLogicalUnit = 0; // association
constexpr uint8_t kEui = 2;         // designator types
constexpr uint8_t kNaa = 3;

// How good a designator is as a name; 0: none.
int rankOf(uint8_t type, Bytes designator)
{
    constexpr uint8_t kLocallyAssigned = 3; // NAA
    if (type == kNaa && designator.size() >= 8 && designator[0] >> 4 != kLocallyAssigned) {
        return designator.size() >= 16 ? 4 : 3;
    }
    return type == kEui && designator.size() >= 8 ? 2 : 0;
}

// All zeros, or all ones: what fills a number that was never set.
bool isPlaceholder(std::string_view digits)
{
    const auto only = [digits](char one, char other) {
        return std::all_of(digits.begin(), digits.end(), [=](char c) { return c == one || c == other || c == '-'; });
    };
    return only('0', '0') || only('f', 'F');
}

void spell(char (&name)[kNameOfDesignator], const char *prefix, Bytes designator)
{
    int length = std::snprintf(name, sizeof name, "%s", prefix);
    for (const uint8_t byte : designator.first(std::min<size_t>(designator.size(), 16))) {
        length += std::snprintf(name + length, sizeof name - static_cast<size_t>(length), "%02x", byte);
    }
}

template <size_t N> void appendCharacter(char (&id)[N], char c)
{
    const size_t length = ::strnlen(id, N);
    if (length + 1 < N) {
        id[length] = c;
        id[length + 1] = '\0';
    }
}

// Appends a text to an id; characters that an id does not have become '_'.
template <size_t N> void appendPart(char (&id)[N], std::string_view text)
{
    for (const char c : text) {
        const bool kept = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
                          c == ':' || c == '-' || c == '_';
        appendCharacter(id, kept ? c : '_');
    }
}

void appendNamespace(Disk &disk)
{
    if (disk.nvmeNamespace) {
        char number[16];
        std::snprintf(number, sizeof number, ".%u", disk.nvmeNamespace.value);
        appendPart(disk.id, number);
    }
}

// Adapter and address; of an NVMe disk the address is that of its adapter, and the namespace follows.
void appendPlace(Disk &disk)
{
    const char *const adapter = disk.adapter[0] != '\0' ? disk.adapter : disk.queue;
    const char *const address = disk.address[0] != '\0' ? disk.address : disk.name;
    appendPart(disk.id, adapter);
    if (std::strcmp(adapter, address) != 0) {
        appendPart(disk.id, adapter[0] == '\0' ? "" : ".");
        appendPart(disk.id, address);
    }
    appendNamespace(disk);
}

void appendSerial(Disk &disk)
{
    const bool nameless = disk.vendor[0] == '\0' && disk.model[0] == '\0'; // as virtio-blk disks are
    appendPart(disk.id, nameless ? nameOf(disk.transport) : disk.vendor);
    appendPart(disk.id, disk.vendor[0] == '\0' || disk.model[0] == '\0' ? "" : "_");
    appendPart(disk.id, disk.model);
    appendPart(disk.id, ".");
    appendPart(disk.id, disk.serial);
    appendNamespace(disk);
}

// Two entries of one identity are paths to one disk only if nothing contradicts: some bridges give each of their disks
// the same name.
bool isSameDisk(const Disk &a, const Disk &b)
{
    const bool serialsDiffer = a.serial[0] != '\0' && b.serial[0] != '\0' && std::strcmp(a.serial, b.serial) != 0;
    const bool sizesDiffer = a.sizeBytes && b.sizeBytes && a.sizeBytes.value != b.sizeBytes.value;
    const bool namespacesDiffer = a.nvmeNamespace && b.nvmeNamespace && a.nvmeNamespace.value != b.nvmeNamespace.value;
    if (serialsDiffer || sizesDiffer || namespacesDiffer) {
        return false;
    }
    return a.idSource == IdentitySource::worldWideName || a.hidden || b.hidden;
}

void addPath(Disk &disk, const Disk &path)
{
    for (uint32_t i = 0; i < std::min<uint32_t>(path.pathCount, kKeptPaths); ++i) {
        if (disk.pathCount < kKeptPaths) {
            std::memcpy(disk.paths[disk.pathCount], path.paths[i], kNameRoom);
        }
        ++disk.pathCount;
    }
}

template <size_t N> void takeIfEmpty(char (&to)[N], const char (&from)[N])
{
    if (to[0] == '\0') {
        std::memcpy(to, from, N);
    }
}

// The node of a multipath NVMe disk belongs to no controller; its paths have one.
void takePlace(Disk &disk, const Disk &path)
{
    takeIfEmpty(disk.address, path.address);
    takeIfEmpty(disk.adapter, path.adapter);
    takeIfEmpty(disk.queue, path.queue);
    takeIfEmpty(disk.bay, path.bay);
    takeIfEmpty(disk.model, path.model);
    takeIfEmpty(disk.serial, path.serial);
    takeIfEmpty(disk.firmware, path.firmware);
}

// Joins two entries, of which the first comes first in the list. The result is in the first.
void join(Disk &first, Disk &second)
{
    if (first.hidden && !second.hidden) {
        std::swap(first, second);
    }
    addPath(first, second);
    takePlace(first, second);
    second.pathCount = 0; // is left out of the list
}

// Positions of the disks, sorted by their ids and, among equal ones, by position.
bool sortById(const Array<Disk> &disks, Array<int32_t> &order)
{
    for (int32_t i = 0; i < disks.count(); ++i) {
        int32_t *const at = order.append();
        if (at == nullptr) {
            return false;
        }
        *at = i;
    }
    std::sort(order.begin(), order.end(), [&disks](int32_t a, int32_t b) {
        const int by = std::strcmp(disks[a].id, disks[b].id);
        return by != 0 ? by < 0 : a < b;
    });
    return true;
}

// Whether paths of one disk can be in a group at all: comparing each entry with each is for them alone.
bool canHavePaths(const Array<Disk> &disks, std::span<const int32_t> group)
{
    return std::any_of(group.begin(), group.end(), [&disks](int32_t at) {
        return disks[at].idSource == IdentitySource::worldWideName || disks[at].hidden;
    });
}

void joinGroup(Array<Disk> &disks, std::span<const int32_t> group)
{
    for (size_t i = 0; i < group.size(); ++i) {
        for (size_t k = i + 1; k < group.size() && disks[group[i]].pathCount != 0; ++k) {
            if (disks[group[k]].pathCount != 0 && isSameDisk(disks[group[i]], disks[group[k]])) {
                join(disks[group[i]], disks[group[k]]);
            }
        }
    }
}

// One group of equal ids: joins what are paths of one disk; the disks that are left are told apart.
void settleGroup(Array<Disk> &disks, std::span<const int32_t> group)
{
    if (canHavePaths(disks, group)) {
        joinGroup(disks, group);
    }
    const auto left =
        std::count_if(group.begin(), group.end(), [&disks](int32_t at) { return disks[at].pathCount != 0; });
    for (const int32_t at : group) {
        if (left > 1 && disks[at].pathCount != 0) {
            appendCharacter(disks[at].id, '@');
            appendPlace(disks[at]);
        }
    }
}

void dropJoined(Array<Disk> &disks)
{
    int32_t kept = 0;
    for (int32_t i = 0; i < disks.count(); ++i) {
        if (disks[i].pathCount != 0) {
            if (kept != i) {
                disks[kept] = disks[i];
            }
            ++kept;
        }
    }
    disks.shrink(kept);
}

// Joins paths and tells disks apart, by their ids. False if memory is short: nothing is joined then.
bool settleIds(Array<Disk> &disks)
{
    Array<int32_t> order;
    if (!sortById(disks, order)) {
        return disks.empty();
    }
    for (int32_t begin = 0; begin < order.count();) {
        int32_t end = begin + 1;
        while (end < order.count() && std::strcmp(disks[order[begin]].id, disks[order[end]].id) == 0) {
            ++end;
        }
        if (end - begin > 1) {
            settleGroup(disks, {order.begin() + begin, static_cast<size_t>(end - begin)});
        }
        begin = end;
    }
    dropJoined(disks);
    return true;
}

} // namespace

bool designatorOf(Bytes page, char (&name)[kNameOfDesignator])
{
    name[0] = '\0';
    const Bytes list = part(page, kPageHeader, static_cast<size_t>(bigEndian(page, 2, 2)));
    int best = 0;
    for (size_t at = 0; at + kDesignatorHeader <= list.size();) {
        const auto type = static_cast<uint8_t>(list[at + 1] & 0x0F);
        const auto association = static_cast<uint8_t>(list[at + 1] >> 4 & 0x03);
        const size_t length = list[at + 3];
        const Bytes designator = part(list, at + kDesignatorHeader, length);
        const int rank = designator.size() == length && association == kLogicalUnit ? rankOf(type, designator) : 0;
        if (rank > best) {
            char spelt[kNameOfDesignator];
            spell(spelt, type == kNaa ? "naa." : "eui.", designator);
            if (isWorldWideName(spelt)) {
                best = rank;
                std::memcpy(name, spelt, sizeof name);
            }
        }
        at += kDesignatorHeader + length;
    }
    return best > 0;
}

bool isWorldWideName(const char *wwid)
{
    const std::string_view text(wwid);
    for (const std::string_view prefix : {"naa.", "eui.", "uuid."}) {
        if (text.starts_with(prefix) && text.size() >= prefix.size() + 16) {
            std::string_view digits = text.substr(prefix.size());
            // The first digit of a NAA name is its kind: what counts is behind it.
            digits.remove_prefix(prefix == "naa." ? 1 : 0);
            return !isPlaceholder(digits);
        }
    }
    return false;
}

void nameDisk(Disk &disk)
{
    disk.id[0] = '\0';
    if (isWorldWideName(disk.wwid)) {
        disk.idSource = IdentitySource::worldWideName;
        appendPart(disk.id, disk.wwid);
    } else if (std::string_view(disk.wwid).starts_with("cid.")) {
        disk.idSource = IdentitySource::cardIdentity;
        appendPart(disk.id, disk.wwid);
    } else if (disk.serial[0] != '\0') {
        disk.idSource = IdentitySource::serialNumber;
        appendPart(disk.id, "serial.");
        appendSerial(disk);
    } else {
        disk.idSource = IdentitySource::place;
        appendPart(disk.id, "place.");
        appendPlace(disk);
    }
}

bool nameDisks(Array<Disk> &disks)
{
    for (Disk &disk : disks) {
        nameDisk(disk);
    }
    const bool settled = settleIds(disks);
    for (Disk &disk : disks) {
        std::memcpy(disk.foundId, disk.id, sizeof disk.foundId);
    }
    return settled;
}

bool nameAskedDisks(Array<Disk> &disks)
{
    for (Disk &disk : disks) {
        if (disk.idSource == IdentitySource::place || disk.transport == Transport::usb) {
            nameDisk(disk);
        }
    }
    return settleIds(disks);
}

} // namespace tavstrg::disks
