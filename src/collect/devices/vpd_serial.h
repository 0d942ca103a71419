// SPDX-License-Identifier: Apache-2.0
// Serial numbers in what the kernel keeps of a SCSI device's identity. Pure: bytes in, text out, whatever the bytes
// claim.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tavstrg {

constexpr size_t kAtaSerialLength = 20; // characters (ATA8-ACS, IDENTIFY DEVICE, words 10 to 19)
constexpr size_t kAtaSerialAt = 20;     // byte of the block

// Text of a device: up to its first NUL, without blanks and control characters at either end.
std::string_view trimmedSerial(std::string_view text);

// VPD page 80h, Unit Serial Number (SPC-4, 7.8.15). The text points into the page; empty if the bytes are no such page.
std::string_view serialOfPage80(std::span<const uint8_t> page);

// VPD page 89h, ATA Information (SAT-2, 10.3.5): the serial number in the IDENTIFY data that it holds, whose words are
// as the disk sends them. Empty if the bytes are no such page or it holds no IDENTIFY data. The text is in buffer.
std::string_view serialOfPage89(std::span<const uint8_t> page, std::array<char, kAtaSerialLength> &buffer);

// The serial number in the block that HDIO_GET_IDENTITY fills (linux/hdreg.h, struct hd_driveid), whose texts the
// kernel has put in order. The text points into the block; empty if the block is too short.
std::string_view serialOfIdentity(std::string_view identity);

} // namespace tavstrg
