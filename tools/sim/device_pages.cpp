// SPDX-License-Identifier: Apache-2.0
// Mode pages, log pages and REQUEST SENSE (SPC-4): the Informational Exceptions Control page and its log.
#include "sim/device.h"

#include <algorithm>
#include <set>
#include <vector>

namespace sim {

namespace {

constexpr uint8_t kExceptionsPage = 0x1C;
constexpr uint8_t kAllPages = 0x3F;
constexpr uint8_t kExceptionsLog = 0x2F;
constexpr uint8_t kInvalidListField = 0x26; // ASC: invalid field in the parameter list
constexpr uint8_t kPredicted = 0x5D;        // ASC: failure prediction threshold exceeded

bool predicts(const Device &device)
{
    return device.is.exceptions.predicting && !device.exceptions.dexcpt;
}

constexpr uint8_t kPageSavable = 0x80;
constexpr uint8_t kDexcpt = 0x08;
constexpr uint8_t kMrie = 0x0F;
constexpr uint8_t kFlags = 0xB7; // PERF, EBF, EWASC, TEST, EBACKERR, LOGERR

enum class PageControl : uint8_t { current, changeable, defaults, saved };

std::vector<uint8_t> pageOf(const ExceptionsDescription &is, const ExceptionsSettings &settings)
{
    std::vector<uint8_t> page(12);
    page[0] = static_cast<uint8_t>(kExceptionsPage | (is.savable ? kPageSavable : 0));
    page[1] = 0x0A;
    page[2] = static_cast<uint8_t>(settings.flags | (settings.dexcpt ? kDexcpt : 0));
    page[3] = settings.mrie;
    return page;
}

std::vector<uint8_t> exceptionsPage(const Device &device, PageControl control)
{
    const ExceptionsDescription &is = device.is.exceptions;
    switch (control) {
    case PageControl::changeable: // a bit is 1 where MODE SELECT may change it
        return pageOf(is, {is.changeableDexcpt, is.changeableMrie ? kMrie : uint8_t{0}, kFlags});
    case PageControl::defaults:
        return pageOf(is, {is.dexcpt, static_cast<uint8_t>(is.mrie), 0});
    case PageControl::saved:
        return pageOf(is, device.savedExceptions);
    case PageControl::current:
        break;
    }
    return pageOf(is, device.exceptions);
}

std::vector<uint8_t> blockDescriptor(const Device &device)
{
    std::vector<uint8_t> descriptor(8);
    const uint64_t blocks = device.is.sectors * 512 / std::max(device.is.sectorSize, 1U);
    const uint64_t shown = std::min<uint64_t>(blocks, 0xFFFFFF);
    for (size_t i = 0; i < 3; ++i) {
        descriptor[1 + i] = static_cast<uint8_t>(shown >> (8 * (2 - i)));
        descriptor[5 + i] = static_cast<uint8_t>(device.is.sectorSize >> (8 * (2 - i)));
    }
    return descriptor;
}

// libata's CHECK CONDITION has a pointer to the invalid field of the CDB.
ScsiReply invalidPage(const Device &device)
{
    ScsiReply reply = checkCondition(kIllegalRequest, kInvalidField);
    if (device.is.ata) {
        reply.sense.resize(26);
        reply.sense[7] = 0x12;
        reply.sense[15] = 0xC0; // SKSV, C/D: byte 2 of the CDB
        reply.sense[17] = 0x02;
    }
    return reply;
}

ScsiReply modeSense(const Device &device, std::span<const uint8_t> cdb, bool tenByte)
{
    const ExceptionsDescription &exceptions = device.is.exceptions;
    if (tenByte ? !exceptions.tenByte : !exceptions.sixByte) {
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
    const uint8_t page = cdb[2] & 0x3F;
    if (page != kAllPages && (page != kExceptionsPage || !exceptions.supported)) {
        return invalidPage(device);
    }
    const auto control = static_cast<PageControl>(cdb[2] >> 6);
    if (control == PageControl::saved && !exceptions.savable) {
        return checkCondition(kIllegalRequest, 0x39); // saving parameters not supported
    }
    const bool withDescriptor = exceptions.blockDescriptor && (cdb[1] & 0x08) == 0; // DBD
    const std::vector<uint8_t> descriptor = withDescriptor ? blockDescriptor(device) : std::vector<uint8_t>();
    const std::vector<uint8_t> body = exceptions.supported ? exceptionsPage(device, control) : std::vector<uint8_t>();
    const size_t header = tenByte ? 8 : 4;
    ScsiReply reply;
    std::vector<uint8_t> &data = reply.data;
    data.resize(header);
    data.insert(data.end(), descriptor.begin(), descriptor.end());
    data.insert(data.end(), body.begin(), body.end());
    constexpr uint8_t kDpoFua = 0x10;
    if (tenByte) {
        data[1] = static_cast<uint8_t>(data.size() - 2);
        data[3] = kDpoFua;
        data[7] = static_cast<uint8_t>(descriptor.size());
    } else {
        data[0] = static_cast<uint8_t>(data.size() - 1);
        data[2] = kDpoFua;
        data[3] = static_cast<uint8_t>(descriptor.size());
    }
    data.resize(std::min<size_t>(data.size(), tenByte ? static_cast<size_t>(cdb[7] << 8 | cdb[8]) : cdb[4]));
    return reply;
}

bool isAllowed(const Device &device, const ExceptionsSettings &requested)
{
    const ExceptionsDescription &is = device.is.exceptions;
    return (is.changeableDexcpt || requested.dexcpt == device.exceptions.dexcpt) &&
           (is.changeableMrie || requested.mrie == device.exceptions.mrie);
}

ScsiReply modeSelect(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> list, bool tenByte)
{
    const ExceptionsDescription &exceptions = device.is.exceptions;
    if (!exceptions.supported || !exceptions.canSelect) {
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
    const bool save = (cdb[1] & 0x01) != 0; // SP
    if (save && !exceptions.savable) {
        return checkCondition(kIllegalRequest, kInvalidField);
    }
    list = list.first(std::min<size_t>(list.size(), tenByte ? static_cast<size_t>(cdb[7] << 8 | cdb[8]) : cdb[4]));
    const size_t header = tenByte ? 8 : 4;
    if (list.size() < header) {
        return checkCondition(kIllegalRequest, 0x1A); // parameter list length error
    }
    const size_t at = header + (tenByte ? static_cast<size_t>(list[6] << 8 | list[7]) : list[3]);
    if (list.size() < at + 12) {
        return checkCondition(kIllegalRequest, 0x1A);
    }
    if ((list[at] & 0x3F) != kExceptionsPage || list[at + 1] != 0x0A) {
        return checkCondition(kIllegalRequest, kInvalidListField);
    }
    const ExceptionsSettings requested{(list[at + 2] & kDexcpt) != 0, static_cast<uint8_t>(list[at + 3] & kMrie),
                                       static_cast<uint8_t>(list[at + 2] & kFlags)};
    if (!isAllowed(device, requested)) {
        return checkCondition(kIllegalRequest, kInvalidListField);
    }
    device.exceptions = requested;
    if (exceptions.fixedMrie >= 0) {
        device.exceptions.mrie = static_cast<uint8_t>(exceptions.fixedMrie);
    }
    if (save) {
        device.savedExceptions = device.exceptions;
    }
    device.unitAttention = exceptions.unitAttention;
    return {};
}

std::vector<uint8_t> withHeader(uint8_t page, const std::vector<uint8_t> &content)
{
    std::vector<uint8_t> data{page, 0, static_cast<uint8_t>(content.size() >> 8), static_cast<uint8_t>(content.size())};
    data.insert(data.end(), content.begin(), content.end());
    return data;
}

// A disk whose logs are not described names a temperature page but does not have it.
std::vector<uint8_t> logPageList(const DeviceDescription &device)
{
    constexpr uint8_t kTemperatureLog = 0x0D;
    const auto &given = device.logs.pages;
    if (const auto list = given.find(0); list != given.end() && list->second) {
        return withHeader(0, *list->second);
    }
    std::set<uint8_t> pages{0x00};
    if (given.empty()) {
        pages.insert(kTemperatureLog);
    }
    if (device.exceptions.logPage) {
        pages.insert(kExceptionsLog);
    }
    for (const auto &[page, content] : given) {
        if (content) {
            pages.insert(page);
        } else {
            pages.erase(page);
        }
    }
    return withHeader(0, {pages.begin(), pages.end()});
}

ScsiReply logSense(const Device &device, std::span<const uint8_t> cdb)
{
    if ((device.is.type != kDisk && device.is.type != kZoned) || device.is.ata) {
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
    const bool hasLog = device.is.exceptions.logPage;
    const uint8_t page = cdb[2] & 0x3F;
    ScsiReply reply;
    if (page == 0x00) {
        reply.data = logPageList(device.is);
    } else if (const auto given = device.is.logs.pages.find(page); given != device.is.logs.pages.end()) {
        if (!given->second) {
            return checkCondition(kIllegalRequest, kInvalidField);
        }
        reply.data = withHeader(page, *given->second);
    } else if (page == kExceptionsLog && hasLog) {
        const bool predicted = predicts(device);
        constexpr uint8_t kTemperature = 38;
        reply.data = {kExceptionsLog,
                      0,
                      0,
                      7,
                      0,
                      0,
                      3,
                      3,
                      static_cast<uint8_t>(predicted ? kPredicted : 0),
                      static_cast<uint8_t>(predicted ? 0xFF : 0),
                      kTemperature};
    } else {
        return checkCondition(kIllegalRequest, kInvalidField);
    }
    reply.data.resize(std::min<size_t>(reply.data.size(), static_cast<size_t>(cdb[7] << 8 | cdb[8])));
    return reply;
}

// Returns pending sense data; without any, a predicted failure if the method is "report on request".
ScsiReply requestSense(const Device &device, std::span<const uint8_t> cdb)
{
    constexpr uint8_t kOnRequest = 6;
    ScsiReply reply = powerSense(device);
    const bool lowPower = reply.sense[12] != 0;
    if (!lowPower && predicts(device) && device.exceptions.mrie == kOnRequest) {
        reply.sense[12] = kPredicted;
        reply.sense[13] = 0xFF;
    }
    const bool descriptors = device.is.descriptorSense && !device.is.ata;
    reply.data = !device.lastSense.empty() && !lowPower ? device.lastSense
                 : descriptors                          ? inDescriptorFormat(reply.sense)
                                                        : reply.sense;
    reply.data.resize(std::min<size_t>(reply.data.size(), cdb[4]));
    if (!device.is.ata) {
        reply.status = 0;
        reply.sense.clear();
    }
    return reply;
}

} // namespace

ScsiReply pageCommand(Device &device, std::span<const uint8_t> cdb, std::span<const uint8_t> dataOut)
{
    const bool tenByte = cdb.size() >= 10 && (cdb[0] >> 5) != 0;
    switch (kindOfScsi(cdb).own) {
    case Kind::modeSense:
        return modeSense(device, cdb, tenByte);
    case Kind::modeSelect:
        return modeSelect(device, cdb, dataOut, tenByte);
    case Kind::logSense:
        return logSense(device, cdb);
    case Kind::requestSense:
        return requestSense(device, cdb);
    default:
        return checkCondition(kIllegalRequest, kInvalidOpcode);
    }
}

} // namespace sim
