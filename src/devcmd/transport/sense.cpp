// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/sense.h"

#include "runtime/trace.h"

#include <algorithm>
#include <limits>

using namespace tavstrg;

namespace {

constexpr uint8_t kResponseCode = 0x7F; // bit 7 of byte 0 is VALID in fixed format
constexpr uint8_t kSenseKey = 0x0F;
constexpr size_t kHeader = 8; // bytes before the additional ones, in both formats

constexpr bool isDescriptorFormat(uint8_t responseCode)
{
    return responseCode == 0x72 || responseCode == 0x73;
}

constexpr uint8_t byteOrZero(std::span<const uint8_t> bytes, size_t i)
{
    return i < bytes.size() ? bytes[i] : uint8_t{0};
}

void decodeFixed(std::span<const uint8_t> sense, SenseInfo &info)
{
    info.sense_key = byteOrZero(sense, 2) & kSenseKey;
    // The additional length shortens what counts; it never lengthens it.
    if (sense.size() >= kHeader && sense.size() >= sense[7] + kHeader) {
        sense = sense.first(sense[7] + kHeader);
    }
    info.asc = byteOrZero(sense, 12);
    info.ascq = byteOrZero(sense, 13);
}

void decodeDescriptor(std::span<const uint8_t> sense, SenseInfo &info)
{
    info.sense_key = byteOrZero(sense, 1) & kSenseKey;
    info.asc = byteOrZero(sense, 2);
    info.ascq = byteOrZero(sense, 3);
    info.additional_length = byteOrZero(sense, 7);
}

} // namespace

SenseFormat tavstrg::decodeSense(std::span<const uint8_t> sense, SenseInfo &info)
{
    if (sense.empty() || (sense[0] & 0x70) < 0x70) {
        return SenseFormat::kNone;
    }
    info = SenseInfo{};
    info.response_code = sense[0] & kResponseCode;
    if (info.response_code == 0x70 || info.response_code == 0x71) {
        decodeFixed(sense, info);
        return SenseFormat::kFixed;
    }
    if (isDescriptorFormat(info.response_code)) {
        decodeDescriptor(sense, info);
        return SenseFormat::kDescriptor;
    }
    return SenseFormat::kUnknown;
}

bool tavstrg::hasSenseDescriptors(std::span<const uint8_t> sense)
{
    return sense.size() >= kHeader && isDescriptorFormat(sense[0] & kResponseCode) && sense[7] != 0;
}

std::span<const uint8_t> tavstrg::findSenseDescriptor(std::span<const uint8_t> sense, int type)
{
    if (!hasSenseDescriptors(sense)) {
        return {};
    }
    const size_t additional = std::min<size_t>(sense[7], sense.size() - kHeader);
    const auto descriptors = sense.subspan(kHeader, additional);
    size_t walked = 0;
    while (walked + 1 < descriptors.size()) {
        if (descriptors[walked] == type) {
            return sense.subspan(kHeader + walked);
        }
        const size_t next = walked + descriptors[walked + 1] + 2;
        // The walked length is an 8-bit value like the additional length. A descriptor that takes it further (its own
        // length comes to 0 then) ends the walk; wrapping around would walk the same descriptors for ever.
        if (next > std::numeric_limits<uint8_t>::max()) {
            break;
        }
        walked = next;
    }
    return {};
}

int scsi_chk_sense_data_format(const uint8_t *sense, size_t len, SenseInfo *info)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ len=[%zu]", len);
    if (sense == nullptr || info == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ invalid paramters");
    }
    switch (decodeSense({sense, len}, *info)) {
    case SenseFormat::kNone:
        return TRACED(-1, kFailure, "_OUT_ No sense data");
    case SenseFormat::kFixed:
        TRACE(kDetail, "fixed format sense data %x", info->response_code);
        break;
    case SenseFormat::kDescriptor:
        TRACE(kDetail, "descriptor format sense data %x", info->response_code);
        break;
    case SenseFormat::kUnknown:
        TRACE(kFailure, "Unknown response code %x", info->response_code);
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}

const uint8_t *scsi_find_sense_data(const uint8_t *sense, size_t len, int type)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ len=[%zu] type=[%x]", len, static_cast<unsigned>(type));
    if (sense == nullptr || len < kHeader) {
        TRACE(kFailure, "error,invalid paramters");
        return TRACED(nullptr, kFailure, "_OUT_");
    }
    const std::span<const uint8_t> bytes{sense, len};
    if (!hasSenseDescriptors(bytes)) {
        TRACE(kFailure, "error,response code %x,addtional sense length %d", sense[0] & kResponseCode, sense[7]);
        return TRACED(nullptr, kFailure, "_OUT_");
    }
    const auto found = findSenseDescriptor(bytes, type);
    if (found.empty()) {
        return TRACED(nullptr, kDetail, "_OUT_");
    }
    return TRACED(found.data(), kDetail, "_OUT_ find descriptor data. type=[%x] length=[%d]", found[0], found[1] + 2);
}
