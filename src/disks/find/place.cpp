// SPDX-License-Identifier: Apache-2.0
#include "disks/find/place.h"

#include <algorithm>
#include <cstddef>

namespace tavstrg::disks {
namespace {

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool isHex(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'f');
}

bool isNumber(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

// "ata1": a word and a number.
bool isNumbered(std::string_view text, std::string_view word)
{
    return text.starts_with(word) && isNumber(text.substr(word.size()));
}

// Text up to a character, which is taken off the front with it.
std::string_view takeUntil(std::string_view &rest, char stop)
{
    const std::string_view taken = rest.substr(0, rest.find(stop));
    rest.remove_prefix(std::min(taken.size() + 1, rest.size()));
    return taken;
}

// The transports that a component of the path shows. A USB disk's path also has a host, a SAS disk's a port: the last
// one that applies counts.
void noteTransport(std::string_view component, Place &place)
{
    struct Row {
        std::string_view word;
        Transport transport;
        bool numbered;
    };
    static constexpr Row kRows[] = {
        {"ata", Transport::sata, true},         {"usb", Transport::usb, true},
        {"session", Transport::iscsi, true},    {"rport-", Transport::fibreChannel, false},
        {"end_device-", Transport::sas, false}, {"virtio", Transport::virtio, true},
        {"mmc", Transport::mmc, true},          {"nvme", Transport::nvme, true},
        {"nvme-subsys", Transport::nvme, true}, {"vbd-", Transport::xen, false},
        {"ndbus", Transport::pmem, true},
    };
    const auto *const row = std::find_if(std::begin(kRows), std::end(kRows), [component](const Row &one) {
        return one.numbered ? isNumbered(component, one.word) : component.starts_with(one.word);
    });
    if (row != std::end(kRows)) {
        place.transport = row->transport;
    }
}

// The number of a host or of an NVMe controller, and what the disk is on otherwise.
void noteQueue(std::string_view component, Place &place)
{
    if (isNumbered(component, "host") || isNumbered(component, "nvme") || isNumbered(component, "mmc") ||
        isNumbered(component, "virtio") || component.starts_with("vbd-")) {
        place.queue = component;
    }
}

void noteAddress(std::string_view component, Place &place)
{
    if (isScsiAddress(component)) {
        place.scsi = true;
        place.address = component;
    } else if (component.starts_with("end_device-")) {
        place.endDevice = component;
    } else if (place.queue == component || component.starts_with("mmc") || component.starts_with("vbd-")) {
        place.address = place.scsi ? place.address : component;
    }
}

struct Piece {
    std::string_view text; // leading characters of a name: letters, or a number without leading zeros
    bool number;
};

Piece takePiece(std::string_view &rest)
{
    const bool number = isDigit(rest.front());
    const auto end = std::find_if(rest.begin(), rest.end(), [number](char c) { return isDigit(c) != number; });
    std::string_view text = rest.substr(0, static_cast<size_t>(end - rest.begin()));
    rest.remove_prefix(text.size());
    while (number && text.size() > 1 && text.front() == '0') {
        text.remove_prefix(1);
    }
    return {text, number};
}

// Of letters the shorter comes first where both begin alike ("sdz", "sdaa"); of numbers the smaller.
int compare(const Piece &a, const Piece &b)
{
    constexpr size_t kFamily = 2; // "sd", "vd"
    if (a.number != b.number) {
        return a.number ? -1 : 1;
    }
    const bool sameFamily = a.number || a.text.substr(0, kFamily) == b.text.substr(0, kFamily);
    if (sameFamily && a.text.size() != b.text.size()) {
        return a.text.size() < b.text.size() ? -1 : 1;
    }
    return a.text.compare(b.text);
}

} // namespace

bool isPciAddress(std::string_view text)
{
    std::string_view rest = text;
    const std::string_view domain = takeUntil(rest, ':');
    const std::string_view bus = takeUntil(rest, ':');
    const std::string_view device = takeUntil(rest, '.');
    const auto isField = [](std::string_view field, size_t least) {
        return field.size() >= least && std::all_of(field.begin(), field.end(), isHex);
    };
    return isField(domain, 4) && isField(bus, 2) && isField(device, 2) && isField(rest, 1);
}

bool isScsiAddress(std::string_view text)
{
    std::string_view rest = text;
    for (int i = 0; i < 3; ++i) {
        if (!isNumber(takeUntil(rest, ':'))) {
            return false;
        }
    }
    return isNumber(rest);
}

bool isNvmePathName(std::string_view name)
{
    std::string_view rest = name;
    if (!rest.starts_with("nvme")) {
        return false;
    }
    rest.remove_prefix(4);
    return isNumber(takeUntil(rest, 'c')) && isNumber(takeUntil(rest, 'n')) && isNumber(rest);
}

Place placeOf(std::string_view path)
{
    Place place;
    const char *const begin = path.data();
    std::string_view rest = path;
    // The last component is the disk itself.
    for (const std::string_view last = path.substr(path.rfind('/') + 1); rest.size() > last.size();) {
        const std::string_view component = takeUntil(rest, '/');
        const Transport before = place.transport;
        noteTransport(component, place);
        // Virtio and USB hosts have SCSI disks behind them, not the other way round.
        if (before == Transport::usb) {
            place.transport = before;
        }
        noteQueue(component, place);
        noteAddress(component, place);
        if (isPciAddress(component)) {
            place.adapter = component;
        }
        const bool usbInterface =
            component.find(':') != std::string_view::npos && component.find('.') != std::string_view::npos;
        if (place.transport == Transport::usb && !place.scsi && usbInterface && !isPciAddress(component)) {
            place.usbDevice = {begin, static_cast<size_t>(component.data() - begin) - 1};
        }
    }
    if (place.transport == Transport::nvme && !place.adapter.empty()) {
        place.address = place.adapter;
    }
    if (place.scsi && place.transport == Transport::unknown) {
        place.transport = Transport::scsi;
    }
    return place;
}

bool comesBefore(std::string_view a, std::string_view b)
{
    while (!a.empty() && !b.empty()) {
        const int by = compare(takePiece(a), takePiece(b));
        if (by != 0) {
            return by < 0;
        }
    }
    return a.empty() && !b.empty();
}

} // namespace tavstrg::disks
