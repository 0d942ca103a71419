// SPDX-License-Identifier: Apache-2.0
// The Informational Exceptions Control mode page (SPC-4, 7.5.11) and what replies about it mean. Pure.
#pragma once

#include "devcmd/transport/pages_parse.h"
#include "devcmd/transport/sg_header.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tavstrg {

// The bytes of the page that are used.
constexpr size_t kExceptionsBytes = 4;
using ExceptionsPage = std::span<uint8_t, kExceptionsBytes>;

constexpr uint8_t kPageSavable = 0x80;      // PS, byte 0
constexpr uint8_t kDexcpt = 0x08;           // disable exception control, byte 2
constexpr uint8_t kMrie = 0x0F;             // method of reporting informational exceptions, byte 3
constexpr uint8_t kMrieOnRequest = 6;       // only report on request
constexpr uint8_t kFailurePredicted = 0x5D; // ASC: failure prediction threshold exceeded

// The page at an offset of a buffer; none unless all the bytes that are used lie in the buffer.
constexpr std::optional<ExceptionsPage> exceptionsPageAt(std::span<uint8_t> buffer, size_t offset)
{
    if (offset > buffer.size() || buffer.size() - offset < kExceptionsBytes) {
        return std::nullopt;
    }
    return ExceptionsPage{buffer.subspan(offset).first<kExceptionsBytes>()};
}

constexpr int savePagesBit(std::span<const uint8_t, kExceptionsBytes> page)
{
    return (page[0] & kPageSavable) != 0 ? 1 : 0;
}

constexpr void switchExceptionsOn(ExceptionsPage page)
{
    page[2] = static_cast<uint8_t>(page[2] & ~kDexcpt);
    page[3] = static_cast<uint8_t>((page[3] & ~kMrie) | kMrieOnRequest);
}

// The method of reporting stays as it is.
constexpr void switchExceptionsOff(ExceptionsPage page)
{
    page[2] = static_cast<uint8_t>(page[2] | kDexcpt);
}

constexpr bool exceptionsAreOff(std::span<const uint8_t, kExceptionsBytes> page)
{
    return (page[2] & kDexcpt) != 0;
}

// Deliberate: only two bits of the method are checked, so that 7, 14 and 15 pass too.
constexpr bool reportsOnRequest(std::span<const uint8_t, kExceptionsBytes> page)
{
    return (page[3] & kMrieOnRequest) >= kMrieOnRequest;
}

constexpr uint8_t responseCodeOf(std::span<const uint8_t> sense)
{
    return static_cast<uint8_t>(replyByte(sense, 0) & 0x7FU);
}

// Sense key of a MODE SENSE that failed before, or after, MODE SELECT. Deliberate: the two differ for response codes of
// neither format.
constexpr uint8_t senseKeyBeforeSelect(std::span<const uint8_t> sense)
{
    const uint8_t code = responseCodeOf(sense);
    return static_cast<uint8_t>(replyByte(sense, code == 0x70 || code == 0x71 ? 2 : 1) & 0x0FU);
}

constexpr uint8_t senseKeyAfterSelect(std::span<const uint8_t> sense)
{
    const uint8_t code = responseCodeOf(sense);
    return static_cast<uint8_t>(replyByte(sense, code == 0x72 || code == 0x73 ? 1 : 2) & 0x0FU);
}

// SCSI status of a positive result of SCSI_IOCTL_SEND_COMMAND; sense data of the driver count as CHECK CONDITION.
constexpr unsigned legacyStatus(int result)
{
    const auto bits = static_cast<unsigned>(result);
    return (bits >> 24 & 0x0FU) == kDriverSense ? kCheckCondition : bits & 0x7EU;
}

// Whether a positive result and its sense key say that the disk does not have the page.
constexpr bool refusesPage(int result, uint8_t senseKey)
{
    constexpr uint8_t kIllegalRequest = 5;
    return senseKey == kIllegalRequest && legacyStatus(result) == kCheckCondition;
}

// Additional sense code in a reply of REQUEST SENSE. Deliberate: whatever is not fixed format is read as descriptor
// format.
constexpr uint8_t requestedSenseCode(std::span<const uint8_t> sense)
{
    const uint8_t code = responseCodeOf(sense);
    return static_cast<uint8_t>(replyByte(sense, code == 0x70 || code == 0x71 ? 12 : 2));
}

} // namespace tavstrg
