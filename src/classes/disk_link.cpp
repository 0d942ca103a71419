// SPDX-License-Identifier: Apache-2.0
#include "classes/disk_link.h"

#include "runtime/field_text.h"

#include <algorithm>
#include <cstdlib>

using namespace tavstrg;

namespace {

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// Records are numbered from 1 without gaps; one that is not in its place is not looked for.
template <class Rec> const Rec *recordOf(std::span<const Rec> records, uint16_t index)
{
    const bool there = index != 0 && index <= records.size() && records[index - 1U].Index == index;
    return there ? &records[index - 1U] : nullptr;
}

// Channel, target and LUN, cut to 16 bits as the records have them.
struct Address {
    bool known;
    uint16_t channel, target, lun;
};

// "0:0:3:1" of a SCSI device: host, channel, target and LUN.
Address addressOf(const disks::Disk &disk)
{
    unsigned long part[4] = {};
    const char *text = disk.address;
    for (size_t i = 0; i < 4; ++i) {
        char *end = nullptr;
        part[i] = std::strtoul(text, &end, 10);
        const char behind = i < 3 ? ':' : '\0';
        if (end == text || *end != behind) {
            return {false, 0, 0, 0};
        }
        text = end + 1;
    }
    return {true, static_cast<uint16_t>(part[1]), static_cast<uint16_t>(part[2]), static_cast<uint16_t>(part[3])};
}

// One of them is often cut: an inquiry has 16 characters of a model, IDENTIFY has 40.
bool isSameModel(std::string_view one, std::string_view other)
{
    return !one.empty() && !other.empty() && (one.starts_with(other) || other.starts_with(one));
}

bool isSameDisk(const disks::Disk &disk, const Address &address, const StrgScsiRec *record)
{
    if (record == nullptr || !address.known || record->Bus != address.channel || record->TargetID != address.target ||
        record->LUN != address.lun) {
        return false;
    }
    const std::string_view serial = trimmed(fieldText(record->SerialNumber));
    if (serial.empty() || disk.serial[0] == '\0') {
        return isSameModel(trimmed(fieldText(record->Model)), disk.model);
    }
    return serial == disk.serial;
}

bool isSameDisk(const disks::Disk &disk, const StrgIdeRec *record)
{
    return record != nullptr && disk.serial[0] != '\0' && trimmed(fieldText(record->SerialNumber)) == disk.serial;
}

} // namespace

uint16_t tavstrg::hardDiskIndexOf(const disks::Disk &disk, const HardDiskRecords &records)
{
    const Address address = addressOf(disk);
    uint16_t index = 0;
    for (const StrgHddRec &candidate : records.disks) {
        const bool same = candidate.InterfaceType == kInterfaceIde
                              ? isSameDisk(disk, recordOf(records.ide, candidate.InterfaceTypeIndex))
                              : isSameDisk(disk, address, recordOf(records.scsi, candidate.InterfaceTypeIndex));
        if (same && index != 0) {
            return 0;
        }
        index = same ? candidate.Index : index;
    }
    return index;
}
