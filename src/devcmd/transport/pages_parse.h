// SPDX-License-Identifier: Apache-2.0
// Where the pages are in the replies of disks. Pure; no byte beyond a span is read, whatever lengths the bytes claim:
// what a disk did not send is 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tavstrg {

constexpr uint8_t kPageCode = 0x3F; // of a mode page's first byte
constexpr size_t kPageHeader = 2;   // bytes of a mode page before those that its length counts
constexpr size_t kModeHeader6 = 4;  // bytes before the block descriptors
constexpr size_t kModeHeader10 = 8;

constexpr size_t replyByte(std::span<const uint8_t> reply, size_t i)
{
    return i < reply.size() ? reply[i] : 0U;
}

constexpr size_t replyWord(std::span<const uint8_t> reply, size_t i)
{
    return replyByte(reply, i) << 8 | replyByte(reply, i + 1);
}

enum class PagePlace {
    kInside,
    kBeyondBuffer, // fewer than two of the page's bytes lie in the buffer
    kBeyondReply,  // or in what the disk reports to have sent
};

struct ModePage {
    PagePlace place;
    size_t offset;           // of the first mode page
    size_t replyLength;      // bytes, by the reply's own account
    size_t descriptorLength; // bytes of block descriptors before the page
};

// The first mode page in a reply of MODE SENSE(10), or of MODE SENSE(6).
constexpr ModePage modePageOffset(std::span<const uint8_t> reply, bool ten)
{
    ModePage page{};
    page.replyLength = ten ? replyWord(reply, 0) + 2 : replyByte(reply, 0) + 1;
    page.descriptorLength = ten ? replyWord(reply, 6) : replyByte(reply, 3);
    page.offset = page.descriptorLength + (ten ? kModeHeader10 : kModeHeader6);
    const size_t end = page.offset + kPageHeader;
    page.place = end > reply.size()       ? PagePlace::kBeyondBuffer
                 : end > page.replyLength ? PagePlace::kBeyondReply
                                          : PagePlace::kInside;
    return page;
}

// What of a reply goes back in MODE SELECT: everything up to the end of its first page.
struct SelectPlan {
    size_t offset; // of the page
    size_t total;  // bytes
};

// None when the page does not lie in the reply. Deliberate: a page must have one byte more than its header.
constexpr std::optional<SelectPlan> planModeSelect(std::span<const uint8_t> reply, bool ten)
{
    const size_t offset = modePageOffset(reply, ten).offset;
    if (offset + kPageHeader >= reply.size()) {
        return std::nullopt;
    }
    const size_t total = offset + reply[offset + 1] + kPageHeader;
    return total <= reply.size() ? std::optional(SelectPlan{offset, total}) : std::nullopt;
}

// Whether a reply of the log page of supported pages lists a page. Only the low byte of the list's length counts.
constexpr bool listsLogPage(std::span<const uint8_t> reply, int page)
{
    constexpr size_t kPagesAt = 4;
    const size_t end = kPagesAt + replyByte(reply, 3);
    for (size_t i = kPagesAt; i < end && i < reply.size(); ++i) {
        if (reply[i] == page) {
            return true;
        }
    }
    return false;
}

// The additional sense code that an Informational Exceptions log page reports, 0 when its first parameter is too short
// for one; none when the page has no such parameter.
constexpr std::optional<uint8_t> judgeInformationalExceptionsLog(std::span<const uint8_t> reply)
{
    const size_t pageLength = replyWord(reply, 2);
    const size_t parameterCode = replyWord(reply, 4);
    const size_t parameterLength = replyByte(reply, 7);
    if (pageLength <= 3 || parameterCode != 0) {
        return std::nullopt;
    }
    return parameterLength > 1 ? static_cast<uint8_t>(replyByte(reply, 8)) : uint8_t{0};
}

} // namespace tavstrg
