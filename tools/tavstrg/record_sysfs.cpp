// SPDX-License-Identifier: Apache-2.0
// Bounded reading of sysfs for a description.
#include "tavstrg/record_parts.h"

#include "disks/bytes.h"
#include "disks/find/place.h"
#include "runtime/holders.h"

#include <algorithm>
#include <bit>
#include <climits>

namespace tool {

using namespace tavstrg::disks;

std::vector<std::string> entriesOf(const std::string &path)
{
    constexpr size_t kMostEntries = 65536;
    std::vector<std::string> names;
    const tavstrg::OpenDirectory directory(path.c_str());
    const char *name = nullptr;
    while (names.size() < kMostEntries && (name = directory.next()) != nullptr) {
        if (name[0] != '.') {
            names.emplace_back(name);
        }
    }
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) { return comesBefore(a, b); });
    return names;
}

std::string textOf(const AttributeDirectory &directory, const char *name)
{
    char buffer[4096];
    char clean[4096];
    copyClean(clean, directory.read(name, buffer));
    return clean;
}

AttributeDirectory entryOf(const std::string &path, const std::string &name)
{
    std::string whole = path;
    whole += '/';
    whole += name;
    return AttributeDirectory(whole.c_str());
}

std::string devicePath(const AttributeDirectory &directory, const char *link, int without)
{
    constexpr std::string_view kDevices = "devices/";
    char buffer[PATH_MAX];
    std::string_view target = directory.link(link, buffer);
    while (target.starts_with("../")) {
        target.remove_prefix(3);
    }
    if (!target.starts_with(kDevices)) {
        return {};
    }
    target.remove_prefix(kDevices.size());
    for (; without > 0; --without) {
        target = target.substr(0, target.find('/') == target.npos ? 0 : target.rfind('/'));
    }
    return std::string(target);
}

void addBlock(const AttributeDirectory &block, Json &json)
{
    constexpr uint64_t kLeastSector = 512;
    constexpr uint64_t kMostSector = 65536;
    const auto isSector = [](uint64_t bytes) {
        return bytes >= kLeastSector && bytes <= kMostSector && std::has_single_bit(bytes);
    };
    uint64_t value = 0;
    if (block.number("size", value)) {
        json["sectors"] = value;
    }
    if (block.number("queue/logical_block_size", value) && isSector(value)) {
        json["sectorSize"] = value;
    }
    if (block.number("queue/physical_block_size", value) && isSector(value)) {
        json["physicalSectorSize"] = value;
    }
    if (block.number("queue/rotational", value) && value == 0) {
        json["rotationRate"] = 0;
    }
    if (block.number("removable", value) && value != 0) {
        json["removable"] = true;
    }
    if (block.number("ro", value) && value != 0) {
        json["readOnly"] = true;
    }
}

const Disk *Recording::asked(const std::string &node) const
{
    const auto found =
        std::find_if(report.disks.begin(), report.disks.end(), [&node](const Disk &disk) { return node == disk.name; });
    return found == report.disks.end() ? nullptr : &*found;
}

} // namespace tool
