// SPDX-License-Identifier: Apache-2.0
// Wear figure of a solid-state drive, from its SMART attributes.
#pragma once

#include "devcmd/transport/sat_command.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Reads the figure of an attribute. Returns 0, also when the drive does not have the attribute, which leaves *endurance
// as it was; -1 when an argument is missing (null, attID 0), the device does not open or the command is not carried.
// The SCSI and ATA status of the command are ignored.
int GetLifeSpanInfoIoctl(const char *devName, uint8_t attID, uint16_t *endurance);

namespace tavstrg {

constexpr size_t kSmartDataLength = 512; // bytes

// ATA PASS-THROUGH(16), SAT-2. Deliberate: the length is said to be in a register (T_LENGTH 1) that holds none; the
// SAT layer of the kernel takes it from the transfer.
constexpr std::array<uint8_t, 16> kSmartReadDataCdb = {
    0x85, // ATA PASS-THROUGH(16)
    0x08, // PIO data-in, no EXTEND
    0x0D, // T_DIR from the device, BYTE_BLOCK, T_LENGTH 1
    0x00, // FEATURES, high byte
    0xD0, // FEATURES: SMART READ DATA
    0x00, // SECTOR COUNT, high byte
    0x00, // SECTOR COUNT
    0x00, // LBA low, high byte
    0x00, // LBA low
    0x00, // LBA mid, high byte
    0x4F, // LBA mid: signature of SMART
    0x00, // LBA high, high byte
    0xC2, // LBA high: signature of SMART
    0x00, // DEVICE
    0xB0, // SMART
    0x00, // CONTROL
};
static_assert(kSmartReadDataCdb ==
              ataPassThrough16(
                  {.protocol = 4, .features = 0xD0, .lbaMid = kSmartLbaMid, .lbaHigh = kSmartLbaHigh, .tLength = 1}));

constexpr size_t kSmartAttributes = 30;
constexpr size_t kSmartAttributesAt = 2; // byte of the data

// One entry of the attribute table, byte for byte (ATA8-ACS leaves it to the vendor; this is the usual layout).
struct SmartAttribute {
    uint8_t id;
    uint8_t flags[2];
    uint8_t current; // normalised
    uint8_t worst;
    uint8_t raw[6];
    uint8_t threshold;
};
static_assert(sizeof(SmartAttribute) == 12);

constexpr uint8_t kWearPercentUsed = 0xE6; // raw byte 1: percent of the rated endurance that is used up

// Takes the first of the 30 entries with this id out of the data, which may be shorter than 512 bytes. Returns false if
// there is none.
bool findSmartAttribute(std::span<const uint8_t> data, uint8_t id, SmartAttribute &attribute);

// Wear figure of an attribute, more is better. Deliberate: for kWearPercentUsed more than 100 used wraps round to a
// figure above every level.
uint16_t enduranceOf(const SmartAttribute &attribute);

} // namespace tavstrg
