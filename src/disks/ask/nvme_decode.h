// SPDX-License-Identifier: Apache-2.0
// What NVMe controllers reply. Pure; nothing beyond the bytes that came counts.
#pragma once

#include "disks/bytes.h"
#include "disks/disk.h"

namespace tavstrg::disks {

// Bits of Critical Warning (NVMe 1.4, figure 194).
constexpr uint8_t kSpareIsLow = 1 << 0;
constexpr uint8_t kTemperatureBeyondThreshold = 1 << 1;
constexpr uint8_t kReliabilityDegraded = 1 << 2;
constexpr uint8_t kReadOnly = 1 << 3;
constexpr uint8_t kBackupFailed = 1 << 4; // of volatile memory
constexpr uint8_t kPersistentMemoryUnreliable = 1 << 5;

// Reads the health log: the critical warning, absent where the log is cut or all zeros or ones (no controller writes
// such a log), and the readings.
Maybe<uint8_t> takeHealthLog(Bytes log, Readings &readings);

} // namespace tavstrg::disks
