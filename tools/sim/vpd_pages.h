// SPDX-License-Identifier: Apache-2.0
// Vital product data of SCSI devices (SPC-4): the device sends them, and the kernel keeps some of them for sysfs.
#pragma once

#include "sim/description.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

inline constexpr uint8_t kSupportedPages = 0x00;
inline constexpr uint8_t kUnitSerialNumber = 0x80;
inline constexpr uint8_t kDeviceIdentification = 0x83;
inline constexpr uint8_t kAtaInformation = 0x89;
inline constexpr uint8_t kBlockCharacteristics = 0xB1;

// A page of a device, or nothing if it has none. Pages of ATA disks are those of libata.
std::optional<std::vector<uint8_t>> vpdPage(const DeviceDescription &device, uint8_t page);

// The identity that the kernel derives from page 83 (scsi_vpd_lun_id): "naa.5000c500a1b2c3d4". Empty if it finds none.
std::string wwidOf(const DeviceDescription &device);

} // namespace sim
