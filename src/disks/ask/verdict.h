// SPDX-License-Identifier: Apache-2.0
// A disk's health, decided from what it reported. Pure.
#pragma once

#include "disks/ask/ata_decode.h"
#include "disks/disk.h"

namespace tavstrg::disks {

constexpr uint32_t kWornOut = 100; // percent of the endurance used

// What was asked of an ATA disk whose SMART is on.
struct AtaReport {
    bool statusRefused; // SMART RETURN STATUS
    SmartVerdict verdict;
};
Health judgeAta(const AtaReport &report, const Readings &readings);

// exception: code and qualifier of log page 2Fh, absent where there is none.
Health judgeScsi(const Maybe<uint16_t> &exception, const Readings &readings);

// warning: Critical Warning of the health log.
Health judgeNvme(uint8_t warning, const Readings &readings);

// Whether a warning is of the disk's temperature, and so passes by itself.
bool isOfTemperature(const Health &warning);
// Whether readings are of a disk that wears out or has sectors that cannot be read: a warning that stays.
bool showWear(const Readings &readings);

} // namespace tavstrg::disks
