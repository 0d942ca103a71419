// SPDX-License-Identifier: Apache-2.0
// Decoding of sense data (SPC-4, 4.5) as pure functions of the bytes that a device sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// What scsi_chk_sense_data_format decodes.
struct SenseInfo {
    uint8_t response_code; // sense byte 0 without bit 7
    uint8_t sense_key;
    uint8_t asc;
    uint8_t ascq;
    uint8_t zero[3];
    uint8_t additional_length; // descriptor format only
};
static_assert(sizeof(SenseInfo) == 8);

namespace tavstrg {

enum class SenseFormat {
    kNone,       // no sense data
    kFixed,      // response codes 0x70, 0x71
    kDescriptor, // response codes 0x72, 0x73
    kUnknown,    // 0x74 to 0x7F: only the response code is decoded
};

// Decodes sense data; info is unchanged if there are none. No byte beyond the span is read, whatever lengths the
// bytes claim: what a device did not send is 0.
SenseFormat decodeSense(std::span<const uint8_t> sense, SenseInfo &info);

// Whether a walk through descriptors is possible: descriptor format with a header of 8 bytes and something after it.
bool hasSenseDescriptors(std::span<const uint8_t> sense);

// First descriptor of a type in sense data with descriptors: from its first byte to the end of the sense data, at least
// two bytes; empty if there is none. A descriptor's own length (its byte 1 + 2) may claim more than is there.
std::span<const uint8_t> findSenseDescriptor(std::span<const uint8_t> sense, int type);

} // namespace tavstrg

// 0 with *info filled when the bytes are sense data of a known format; -1 otherwise.
int scsi_chk_sense_data_format(const uint8_t *sense, size_t len, SenseInfo *info);
// First sense descriptor of a type, or null.
const uint8_t *scsi_find_sense_data(const uint8_t *sense, size_t len, int type);
