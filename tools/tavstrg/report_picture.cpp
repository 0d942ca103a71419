// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/html.h"
#include "tavstrg/report_parts.h"
#include "tavstrg/words.h"

#include "disks/find/place.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <optional>

namespace tool {
namespace {

using namespace tavstrg::disks;

constexpr int kMostSlot = 255; // a number above is none of a bay

struct Tile {
    const Disk *disk; // null: a bay in which no disk is seen
    size_t row;       // of the table
    std::string slot;
    std::optional<int> number; // of the slot
};

// An enclosure, or what is attached to an adapter without one.
struct Shelf {
    std::string enclosure;
    std::vector<Tile> tiles;
};

struct Group {
    std::string title;
    std::vector<Shelf> shelves;
};

// "258:0:24:0 Slot 07" is a slot of an enclosure, "Slot 3" one of the machine.
void splitBay(std::string_view bay, std::string &enclosure, std::string &slot)
{
    const size_t blank = bay.find(' ');
    if (blank != std::string_view::npos && isScsiAddress(bay.substr(0, blank))) {
        enclosure = bay.substr(0, blank);
        bay.remove_prefix(blank + 1);
    }
    slot = bay;
}

std::optional<int> numberAtEnd(const std::string &slot)
{
    const size_t last = slot.find_last_not_of("0123456789");
    const std::string digits = last == std::string::npos ? slot : slot.substr(last + 1);
    int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && number <= kMostSlot ? std::optional(number) : std::nullopt;
}

// Drives that are their own adapter are one group, or a machine with 24 of them would have 24 of one drive.
bool isOwnAdapter(Transport transport)
{
    return transport == Transport::nvme || transport == Transport::virtio || transport == Transport::mmc ||
           transport == Transport::xen || transport == Transport::pmem;
}

std::string transportWords(Transport transport)
{
    switch (transport) {
    case Transport::sata:
        return "SATA";
    case Transport::sas:
        return "SAS";
    case Transport::usb:
        return "USB";
    case Transport::nvme:
        return "NVMe";
    case Transport::mmc:
        return "MMC and SD";
    case Transport::fibreChannel:
        return "Fibre Channel";
    case Transport::iscsi:
        return "iSCSI";
    case Transport::scsi:
        return "SCSI";
    case Transport::xen:
        return "Xen";
    case Transport::unknown:
        return "Others";
    default:
        return nameOf(transport);
    }
}

std::string titleOf(const Disk &disk)
{
    const std::string bus = transportWords(disk.transport);
    return isOwnAdapter(disk.transport) || disk.adapter[0] == '\0' ? bus
                                                                   : bus + ", adapter " + std::string(disk.adapter);
}

template <class Entry, class Name> Entry &entryOf(std::vector<Entry> &entries, Name Entry::*name, const Name &wanted)
{
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&](const Entry &entry) { return entry.*name == wanted; });
    if (found != entries.end()) {
        return *found;
    }
    entries.emplace_back().*name = wanted;
    return entries.back();
}

std::vector<Group> groupsOf(const std::vector<Disk> &disks)
{
    std::vector<Group> groups;
    for (size_t i = 0; i < disks.size(); ++i) {
        Tile tile{&disks[i], i, "", std::nullopt};
        std::string enclosure;
        splitBay(disks[i].bay, enclosure, tile.slot);
        tile.number = numberAtEnd(tile.slot);
        Group &group = entryOf(groups, &Group::title, titleOf(disks[i]));
        entryOf(group.shelves, &Shelf::enclosure, enclosure).tiles.push_back(tile);
    }
    return groups;
}

// Whether each disk has a bay of its own with a number, so that order and gaps mean something.
bool isNumbered(const std::vector<Tile> &tiles)
{
    return std::all_of(tiles.begin(), tiles.end(), [](const Tile &tile) { return tile.number.has_value(); }) &&
           std::adjacent_find(tiles.begin(), tiles.end(),
                              [](const Tile &a, const Tile &b) { return a.number == b.number; }) == tiles.end();
}

// In the order of the bays. Bays of an enclosure begin with 0 or 1; of its last ones without a disk nothing is known.
void arrange(Shelf &shelf)
{
    std::stable_sort(shelf.tiles.begin(), shelf.tiles.end(),
                     [](const Tile &a, const Tile &b) { return a.number < b.number; });
    if (shelf.enclosure.empty() || !isNumbered(shelf.tiles)) {
        return;
    }
    std::vector<Tile> all;
    int next = std::min(*shelf.tiles.front().number, 1);
    for (const Tile &tile : shelf.tiles) {
        for (; next < *tile.number; ++next) {
            all.push_back({nullptr, 0, std::to_string(next), next});
        }
        all.push_back(tile);
        ++next;
    }
    shelf.tiles = std::move(all);
}

std::string inTile(const std::string &text)
{
    constexpr size_t kRoom = 15;
    return escapedHtml(text.size() <= kRoom ? text : "~" + text.substr(text.size() - kRoom + 1));
}

std::string figures(const Readings &readings)
{
    std::string text = readings.temperatureCelsius ? std::to_string(readings.temperatureCelsius.value) + " °C" : "";
    if (readings.enduranceUsedPercent) {
        text += (text.empty() ? "" : ", ") + std::to_string(readings.enduranceUsedPercent.value) + " %";
    }
    return text;
}

std::string describe(const Tile &tile)
{
    const Disk &disk = *tile.disk;
    std::string text = nameOf(disk.health.state) + std::string(": ") + disk.health.reason;
    for (const auto &[what, value] : {std::pair<const char *, const char *>{"", disk.model},
                                      {"serial ", disk.serial},
                                      {"bay ", disk.bay},
                                      {"at ", disk.address}}) {
        text += *value == '\0' ? "" : std::string("; ") + what + value;
    }
    return text;
}

// A platter or a chip: how it stores, where the kernel knows it.
std::string kindMarkup(const Disk &disk)
{
    if (!disk.rotational) {
        return "";
    }
    return disk.rotational.value
               ? R"(<circle class="kind" cx="82" cy="14" r="7"/><circle class="kind" cx="82" cy="14" r="2"/>)"
               : R"(<path class="kind" d="M76 8h12v12H76Z M79 5v3 M85 5v3 M79 20v3 M85 20v3"/>)";
}

std::string diskMarkup(const Tile &tile)
{
    const Disk &disk = *tile.disk;
    const std::string state = nameOf(disk.health.state);
    const std::string id = std::to_string(tile.row);
    const std::string below = tile.slot.empty() ? disk.address : tile.slot;
    return R"(<li><a href="#disk)" + id + R"("><svg class="bay )" + state +
           R"(" viewBox="0 0 96 68" role="img" aria-labelledby="name)" + id + " what" + id +
           R"(" xmlns="http://www.w3.org/2000/svg"><title id="name)" + id + "\">" + escapedHtml(disk.name) +
           "</title><desc id=\"what" + id + "\">" + escapedHtml(describe(tile)) +
           R"(</desc><rect class="box" x="2" y="2" width="92" height="64" rx="5"/>)" + kindMarkup(disk) +
           "<use href=\"#sign-" + state + R"(" x="7" y="6" width="15" height="15"/>)" +
           R"(<text class="node" x="8" y="36">)" + inTile(disk.name) + R"(</text><text x="8" y="49">)" + inTile(below) +
           R"(</text><text x="8" y="61">)" + figures(disk.readings) + "</text></svg></a></li>\n";
}

std::string emptyMarkup(const Tile &tile)
{
    return R"(<li><svg class="bay none" viewBox="0 0 96 68" role="img" xmlns="http://www.w3.org/2000/svg"><title>bay )" +
           escapedHtml(tile.slot) +
           R"(: no disk</title><rect class="box" x="2" y="2" width="92" height="64" rx="5"/>)" +
           R"(<text x="8" y="36">no disk</text><text x="8" y="49">)" + inTile("bay " + tile.slot) +
           "</text></svg></li>\n";
}

std::string shelfMarkup(const Shelf &shelf)
{
    std::string text = shelf.enclosure.empty() ? "" : "<h4>Enclosure " + escapedHtml(shelf.enclosure) + "</h4>\n";
    text += "<ul class=\"bays\">\n";
    for (const Tile &tile : shelf.tiles) {
        text += tile.disk == nullptr ? emptyMarkup(tile) : diskMarkup(tile);
    }
    return text + "</ul>\n";
}

std::string groupMarkup(const Group &group)
{
    size_t disks = 0;
    for (const Shelf &shelf : group.shelves) {
        disks += shelf.tiles.size();
    }
    std::string text = "<section class=\"adapter\">\n<h3>" + escapedHtml(group.title) + " <small>" +
                       counted(disks, "disk") + "</small></h3>\n";
    for (Shelf shelf : group.shelves) {
        arrange(shelf);
        text += shelfMarkup(shelf);
    }
    return text + "</section>\n";
}

} // namespace

std::string pictureMarkup(const std::vector<Disk> &disks)
{
    std::string text;
    for (const Group &group : groupsOf(disks)) {
        text += groupMarkup(group);
    }
    return text;
}

} // namespace tool
