// SPDX-License-Identifier: Apache-2.0
#include "sim/nvme_pages.h"

#include "sim/hex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <string_view>

namespace sim {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kIdentifyLength = 4096;

// Numbers are little-endian.
void put(Bytes &to, size_t at, size_t length, uint64_t value)
{
    for (size_t i = 0; i < length; ++i) {
        to[at + i] = static_cast<uint8_t>(i < 8 ? value >> (8 * i) : 0);
    }
}

void putText(Bytes &to, size_t at, size_t length, std::string_view text, char padding = ' ')
{
    for (size_t i = 0; i < length; ++i) {
        to[at + i] = static_cast<uint8_t>(i < text.size() ? text[i] : padding);
    }
}

void putBytes(Bytes &to, size_t at, const Bytes &from)
{
    std::copy(from.begin(), from.end(), to.begin() + static_cast<std::ptrdiff_t>(at));
}

uint64_t blocksOf(const NvmeNamespace &space)
{
    return space.device.sectors * 512 / space.device.sectorSize;
}

unsigned kelvin(std::optional<int> celsius)
{
    return celsius ? static_cast<unsigned>(*celsius + 273) : 0;
}

Bytes healthPage(const NvmeHealth &health)
{
    if (!health.raw.empty()) {
        return health.raw;
    }
    Bytes page(512);
    put(page, 0, 1, health.criticalWarning);
    put(page, 1, 2, kelvin(health.temperature));
    put(page, 3, 1, health.availableSpare);
    put(page, 4, 1, health.spareThreshold);
    put(page, 5, 1, health.percentageUsed);
    const uint64_t counters[] = {health.dataUnitsRead,  health.dataUnitsWritten, health.hostReads,
                                 health.hostWrites,     health.busyMinutes,      health.powerCycles,
                                 health.powerOnHours,   health.unsafeShutdowns,  health.mediaErrors,
                                 health.errorLogEntries};
    for (size_t i = 0; i < std::size(counters); ++i) {
        put(page, 32 + 16 * i, 16, counters[i]);
    }
    put(page, 192, 4, health.warningMinutes);
    put(page, 196, 4, health.criticalMinutes);
    for (size_t i = 0; i < health.sensors.size(); ++i) {
        put(page, 200 + 2 * i, 2, kelvin(health.sensors[i]));
    }
    return page;
}

void addDescriptor(Bytes &list, size_t &at, uint8_t type, const Bytes &id)
{
    if (!id.empty()) {
        list[at] = type;
        list[at + 1] = static_cast<uint8_t>(id.size());
        putBytes(list, at + 4, id);
        at += 4 + id.size();
    }
}

std::string hexOfText(const std::string &text, size_t longest)
{
    const std::string cut = text.substr(0, longest);
    const std::string plain = cut.substr(0, cut.find_last_not_of(' ') + 1);
    return hexText(plain);
}

} // namespace

std::vector<uint8_t> identifyController(const NvmeController &controller)
{
    Bytes data(kIdentifyLength);
    put(data, 0, 2, controller.vendorId);
    put(data, 2, 2, controller.vendorId);
    putText(data, 4, 20, controller.serial);
    putText(data, 24, 40, controller.model);
    putText(data, 64, 8, controller.firmware);
    put(data, 76, 1, controller.multipath ? 0x02 : 0); // several controllers in the subsystem
    put(data, 77, 1, 5);
    put(data, 78, 2, controller.cntlid);
    put(data, 80, 4, 0x00010400); // version 1.4
    put(data, 111, 1, 1);         // I/O controller
    put(data, 259, 1, 3);
    put(data, 260, 1, 0x02);
    put(data, 261, 1, 0x04); // extended data of Get Log Page
    put(data, 266, 2, kelvin(70));
    put(data, 268, 2, kelvin(85));
    uint64_t total = 0;
    for (const NvmeNamespace &space : controller.namespaces) {
        total += space.device.sectors * 512;
    }
    put(data, 280, 16, total);
    put(data, 512, 1, 0x66); // queue entries of 64 and 16 bytes
    put(data, 513, 1, 0x44);
    put(data, 516, 4, std::max<size_t>(controller.namespaces.size(), 1));
    putText(data, 768, 256, controller.nqn, '\0');
    return data;
}

std::vector<uint8_t> identifyNamespace(const NvmeNamespace &space)
{
    Bytes data(kIdentifyLength);
    for (const size_t at : {size_t{0}, size_t{8}, size_t{16}}) { // size, capacity, utilization
        put(data, at, 8, blocksOf(space));
    }
    put(data, 30, 1, space.path.empty() ? 0 : 1); // shared by controllers
    put(data, 48, 16, space.device.sectors * 512);
    putBytes(data, 104, space.nguid);
    putBytes(data, 120, space.eui);
    put(data, 130, 1, static_cast<uint64_t>(std::countr_zero(space.device.sectorSize)));
    return data;
}

std::vector<uint8_t> namespaceDescriptors(const NvmeNamespace &space)
{
    Bytes list(kIdentifyLength);
    size_t at = 0;
    addDescriptor(list, at, 1, space.eui);
    addDescriptor(list, at, 2, space.nguid);
    addDescriptor(list, at, 3, space.uuid);
    return list;
}

std::vector<uint8_t> activeNamespaces(const NvmeController &controller, unsigned after)
{
    Bytes list(kIdentifyLength);
    std::vector<unsigned> numbers;
    for (const NvmeNamespace &space : controller.namespaces) {
        if (space.nsid > after) {
            numbers.push_back(space.nsid);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    for (size_t i = 0; i < std::min(numbers.size(), list.size() / 4); ++i) {
        put(list, 4 * i, 4, numbers[i]);
    }
    return list;
}

std::optional<std::vector<uint8_t>> nvmeLog(const NvmeController &controller, uint8_t page)
{
    constexpr uint8_t kErrors = 0x01;
    constexpr uint8_t kHealth = 0x02;
    constexpr uint8_t kFirmwareSlots = 0x03;
    if (page == kHealth) {
        return healthPage(controller.health);
    }
    if (page == kErrors) {
        return Bytes(64);
    }
    if (page != kFirmwareSlots) {
        return std::nullopt;
    }
    Bytes slots(512);
    slots[0] = 1; // the firmware of slot 1 is active
    putText(slots, 8, 8, controller.firmware);
    return slots;
}

std::string uuidText(const std::vector<uint8_t> &bytes)
{
    std::string text = hexText(bytes);
    for (const size_t at : {size_t{20}, size_t{16}, size_t{12}, size_t{8}}) {
        if (text.size() > at) {
            text.insert(at, "-");
        }
    }
    return text;
}

std::string wwidOf(const NvmeController &controller, const NvmeNamespace &space)
{
    if (space.wwid) {
        return *space.wwid;
    }
    if (!space.uuid.empty()) {
        return "uuid." + uuidText(space.uuid);
    }
    if (!space.nguid.empty() || !space.eui.empty()) {
        return "eui." + hexText(space.nguid.empty() ? space.eui : space.nguid);
    }
    std::array<char, 16> vendor{};
    std::array<char, 16> number{};
    std::snprintf(vendor.data(), vendor.size(), "nvme.%04x-", controller.vendorId);
    std::snprintf(number.data(), number.size(), "-%08x", space.nsid);
    return vendor.data() + hexOfText(controller.serial, 20) + "-" + hexOfText(controller.model, 40) + number.data();
}

} // namespace sim
