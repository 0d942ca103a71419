// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/scsi_decode.h"

#include "devcmd/transport/pages.h"
#include "devcmd/transport/pages_parse.h"
#include "devcmd/transport/sense.h"
#include "disks/ask/scsi_command.h"

#include <algorithm>
#include <limits>

namespace tavstrg::disks {
namespace {

constexpr size_t kPageHeaderLength = 4;
constexpr size_t kParameterHeader = 4;
constexpr uint8_t kNoTemperature = 0xFF;

bool isPage(Bytes page, uint8_t code)
{
    constexpr uint8_t kCodeBits = 0x3F;
    return page.size() >= kPageHeaderLength && (page[0] & kCodeBits) == code;
}

// The value of a log page's parameter, as much of it as is there; empty without it.
Bytes parameterOf(Bytes page, uint16_t code)
{
    const Bytes list = part(page, kPageHeaderLength, static_cast<size_t>(bigEndian(page, 2, 2)));
    for (size_t at = 0; at + kParameterHeader <= list.size();) {
        const size_t length = list[at + 3];
        if (bigEndian(list, at, 2) == code) {
            return part(list, at + kParameterHeader, length);
        }
        at += kParameterHeader + length;
    }
    return {};
}

Maybe<int32_t> celsiusOf(uint8_t byte)
{
    return byte == kNoTemperature ? Maybe<int32_t>{} : someOf<int32_t>(byte);
}

// A counter of any length; one that does not fit is the largest that does.
uint64_t counterOf(Bytes value)
{
    while (value.size() > sizeof(uint64_t)) {
        if (value[0] != 0) {
            return std::numeric_limits<uint64_t>::max();
        }
        value = value.subspan(1);
    }
    return bigEndian(value, 0, value.size());
}

void addUncorrected(Bytes page, Readings &readings)
{
    constexpr uint16_t kUncorrected = 0x0006;
    if (const Bytes value = parameterOf(page, kUncorrected); !value.empty()) {
        const uint64_t more = counterOf(value);
        const uint64_t before = readings.mediaErrors.orElse(0);
        readings.mediaErrors.set(more > std::numeric_limits<uint64_t>::max() - before
                                     ? std::numeric_limits<uint64_t>::max()
                                     : before + more);
    }
}

void takeStartStop(Bytes page, Readings &readings)
{
    constexpr uint16_t kAccumulatedCycles = 0x0004;
    constexpr uint64_t kNotReported = 0xFFFFFFFF;
    const Bytes value = parameterOf(page, kAccumulatedCycles);
    if (value.size() >= 4 && bigEndian(value, 0, 4) != kNotReported) {
        readings.powerCycles.set(bigEndian(value, 0, 4));
    }
}

} // namespace

PowerState powerOfSense(Bytes sense)
{
    SenseInfo info{};
    const SenseFormat format = decodeSense(sense, info);
    if (format == SenseFormat::kNone || format == SenseFormat::kUnknown) {
        return PowerState::unknown;
    }
    constexpr uint8_t kNotReady = 2;
    if (info.sense_key == kNotReady && info.asc == 0x04 && info.ascq == 0x02) {
        return PowerState::standby; // initializing command required: it was stopped
    }
    if (info.asc != 0x5E) {
        return PowerState::active;
    }
    switch (info.ascq) {
    case 0x02: // standby_z by timer
    case 0x04: // standby_z by command
    case 0x09: // standby_y by timer
    case 0x0A: // standby_y by command
        return PowerState::standby;
    default:
        return PowerState::idle;
    }
}

bool listsPage(Bytes supported, uint8_t page)
{
    const Bytes pages = part(supported, kPageHeaderLength, static_cast<size_t>(bigEndian(supported, 2, 2)));
    return isPage(supported, kSupportedPages) && std::find(pages.begin(), pages.end(), page) != pages.end();
}

bool listsVpdPage(Bytes supported, uint8_t page)
{
    const Bytes pages = part(supported, 4, static_cast<size_t>(bigEndian(supported, 2, 2)));
    return byteAt(supported, 1) == kSupportedVpdPages && std::find(pages.begin(), pages.end(), page) != pages.end();
}

Maybe<uint16_t> exceptionOf(Bytes page, Readings &readings)
{
    const Bytes value = isPage(page, kExceptionsPage) ? parameterOf(page, 0x0000) : Bytes{};
    if (value.size() < 2) {
        return {};
    }
    if (value.size() >= 3 && value[2] != 0 && !readings.temperatureCelsius) {
        readings.temperatureCelsius = celsiusOf(value[2]);
    }
    return someOf(static_cast<uint16_t>(bigEndian(value, 0, 2)));
}

void takeLogPage(Bytes page, uint8_t code, Readings &readings)
{
    if (!isPage(page, code)) {
        return;
    }
    switch (code) {
    case kTemperaturePage:
        if (const Bytes value = parameterOf(page, 0x0000); value.size() >= 2) {
            readings.temperatureCelsius = celsiusOf(value[1]);
        }
        break;
    case kStartStopPage:
        takeStartStop(page, readings);
        break;
    case kSolidStatePage:
        if (const Bytes value = parameterOf(page, 0x0001); value.size() >= 4) {
            readings.enduranceUsedPercent.set(value[3]);
        }
        break;
    case kBackgroundScanPage:
        if (const Bytes value = parameterOf(page, 0x0000); value.size() >= 4) {
            readings.powerOnHours.set(bigEndian(value, 0, 4) / 60); // minutes
        }
        break;
    case kWriteErrorsPage:
    case kReadErrorsPage:
        addUncorrected(page, readings);
        break;
    default:
        break;
    }
}

bool exceptionsAreDisabled(Bytes reply)
{
    constexpr uint8_t kDisabled = 0x08; // DEXCPT
    const ModePage page = modePageOffset(reply, true);
    if (page.place != PagePlace::kInside || reply.size() < page.offset + 3) {
        return false;
    }
    return (reply[page.offset] & kPageCode) == kExceptionsModePage && (reply[page.offset + 2] & kDisabled) != 0;
}

} // namespace tavstrg::disks
