// SPDX-License-Identifier: Apache-2.0
// The bytes of the mode and log page commands (SPC-4): CDBs, and the buffers of SCSI_IOCTL_SEND_COMMAND. Pure.
#pragma once

#include "devcmd/transport/pages.h"
#include "devcmd/transport/pages_parse.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavstrg {

using Cdb6 = std::array<uint8_t, 6>;
using Cdb10 = std::array<uint8_t, 10>;

constexpr uint8_t lowByte(size_t value)
{
    return static_cast<uint8_t>(value & 0xFFU);
}

constexpr uint8_t highByte(size_t value)
{
    return static_cast<uint8_t>(value >> 8 & 0xFFU);
}

// Page control in the upper two bits, page code in the lower six.
constexpr uint8_t pageByte(int pageControl, int page)
{
    return static_cast<uint8_t>((static_cast<unsigned>(pageControl) << 6 | (static_cast<unsigned>(page) & 0x3FU)) &
                                0xFFU);
}

// PF: the list follows the standard; SP: save the page.
constexpr uint8_t selectByte(int savePages)
{
    return static_cast<uint8_t>(0x10U | (static_cast<unsigned>(savePages) & 1U));
}

// Deliberate: whatever the caller's buffer holds, the CDB asks for all that its length byte can.
constexpr Cdb6 modeSense6Cdb(int page, int pageControl)
{
    return {0x1A, 0, pageByte(pageControl, page), 0, 0xFF, 0};
}

constexpr Cdb10 modeSense10Cdb(int page, int pageControl, size_t length)
{
    return {0x5A, 0, pageByte(pageControl, page), 0, 0, 0, 0, highByte(length), lowByte(length), 0};
}

constexpr Cdb6 modeSelect6Cdb(int savePages, size_t total)
{
    return {0x15, selectByte(savePages), 0, 0, lowByte(total), 0};
}

// Deliberate: only the low byte of the length is sent, the high byte stays 0.
constexpr Cdb10 modeSelect10Cdb(int savePages, size_t total)
{
    return {0x55, selectByte(savePages), 0, 0, 0, 0, 0, 0, lowByte(total), 0};
}

constexpr Cdb10 logSenseCdb(int page, size_t length)
{
    constexpr int kCumulative = 1;
    return {0x4D, 0, pageByte(kCumulative, page), 0, 0, 0, 0, highByte(length), lowByte(length), 0};
}

constexpr Cdb6 requestSenseCdb()
{
    return {0x03, 0, 0, 0, 0xFF, 0};
}

static_assert(modeSense6Cdb(kExceptionsModePage, 0) == Cdb6{0x1A, 0, 0x1C, 0, 0xFF, 0});
static_assert(modeSense10Cdb(kExceptionsModePage, 0, kPageBuffer) == Cdb10{0x5A, 0, 0x1C, 0, 0, 0, 0, 0, 0xFF, 0});
static_assert(modeSelect6Cdb(1, 24) == Cdb6{0x15, 0x11, 0, 0, 24, 0});
static_assert(modeSelect10Cdb(0, 0x11C) == Cdb10{0x55, 0x10, 0, 0, 0, 0, 0, 0, 0x1C, 0});
static_assert(logSenseCdb(kExceptionsLogPage, kLogLength) == Cdb10{0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 0xFC, 0});

// ---- SCSI_IOCTL_SEND_COMMAND (scsi/scsi_ioctl.h) ----
// inlen and outlen in the machine's byte order, the CDB, the parameter list; the reply takes the CDB's place.

constexpr size_t kLegacyHeader = 8;

template <size_t CdbLength> using LegacyBuffer = std::array<uint8_t, kLegacyHeader + CdbLength + kPageBuffer>;
static_assert(sizeof(LegacyBuffer<6>) == 269 && sizeof(LegacyBuffer<10>) == 273);

// Bytes of a reply that the kernel may write.
template <size_t CdbLength> constexpr size_t kLegacyReply = CdbLength + kPageBuffer;

// Bytes of a reply that are handed to the caller, however many were asked for. LOG SENSE deliberately gives fewer.
constexpr size_t kLegacyCopied = 255;
constexpr size_t kLegacyLogCopied = 244;

// A command without parameter list. More than fits behind the header is not asked for.
template <size_t CdbLength>
constexpr LegacyBuffer<CdbLength> legacyRequest(const std::array<uint8_t, CdbLength> &cdb, size_t inLength,
                                                size_t outLength)
{
    LegacyBuffer<CdbLength> buffer{};
    const auto in = std::bit_cast<std::array<uint8_t, 4>>(static_cast<uint32_t>(inLength));
    const auto out =
        std::bit_cast<std::array<uint8_t, 4>>(static_cast<uint32_t>(std::min(outLength, kLegacyReply<CdbLength>)));
    std::copy(in.begin(), in.end(), buffer.begin());
    std::copy(out.begin(), out.end(), buffer.begin() + 4);
    std::copy(cdb.begin(), cdb.end(), buffer.begin() + kLegacyHeader);
    return buffer;
}

// The page of a reply at its offset in the parameter list, as far as both have room.
template <size_t CdbLength>
constexpr void putLegacyPage(LegacyBuffer<CdbLength> &buffer, std::span<const uint8_t> reply, const SelectPlan &plan)
{
    constexpr size_t kListAt = kLegacyHeader + CdbLength;
    const size_t end = std::min({plan.total, reply.size(), buffer.size() - kListAt});
    for (size_t i = plan.offset; i < end; ++i) {
        buffer[kListAt + i] = reply[i];
    }
}

// The list is built from scratch: a header that announces one block descriptor, of 512-byte blocks, and the page where
// it was. Deliberate: also where the reply had no block descriptor.
constexpr LegacyBuffer<6> legacyModeSelect6(int savePages, std::span<const uint8_t> reply, const SelectPlan &plan)
{
    constexpr size_t kListAt = kLegacyHeader + 6;
    constexpr size_t kDescriptorAt = 4;
    constexpr size_t kDescriptorLength = 8;
    constexpr size_t kUsualPageAt = kDescriptorAt + kDescriptorLength;
    LegacyBuffer<6> buffer = legacyRequest(modeSelect6Cdb(savePages, plan.total), plan.total, 0);
    buffer[kListAt + 3] = kDescriptorLength;
    buffer[kListAt + kDescriptorAt + 6] = 0x02; // bytes 5 to 7: block length 0x000200
    putLegacyPage<6>(buffer, reply, plan);
    buffer[kListAt + kUsualPageAt] &= kPageCode; // PS is reserved in a list that is sent
    return buffer;
}

// Deliberate: header and block descriptor stay zero, only the page is sent.
constexpr LegacyBuffer<10> legacyModeSelect10(int savePages, std::span<const uint8_t> reply, const SelectPlan &plan)
{
    LegacyBuffer<10> buffer = legacyRequest(modeSelect10Cdb(savePages, plan.total), plan.total, 0);
    putLegacyPage<10>(buffer, reply, plan);
    return buffer;
}

} // namespace tavstrg
