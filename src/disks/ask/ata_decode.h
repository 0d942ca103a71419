// SPDX-License-Identifier: Apache-2.0
// What ATA disks reply. Pure; nothing beyond the bytes that came counts, whatever lengths they claim.
#pragma once

#include "disks/bytes.h"
#include "disks/disk.h"

#include <optional>

namespace tavstrg::disks {

// Registers that CK_COND returns.
struct AtaRegisters {
    uint8_t error;
    uint8_t status;
    uint8_t count;   // (7:0)
    uint8_t lbaLow;  // (7:0)
    uint8_t lbaMid;  // (15:8)
    uint8_t lbaHigh; // (23:16)
};

// From the ATA Status Return descriptor, or from the INFORMATION and COMMAND-SPECIFIC INFORMATION fields of
// fixed-format sense data that say "ATA pass-through information available" (SAT-4, 12.2.2.6 and 12.2.2.7). None
// without them.
std::optional<AtaRegisters> registersOf(Bytes sense);

// The command ended in an error (status bit 0, ERR).
constexpr bool failed(const AtaRegisters &registers)
{
    return (registers.status & 1) != 0;
}

// COUNT after CHECK POWER MODE (ACS-3, table 19); unknown for a value that it does not have.
PowerState powerOf(uint8_t count);

enum class SmartVerdict { unknown, good, exceeded };
// LBA after SMART RETURN STATUS (ACS-3, 7.48.8).
SmartVerdict verdictOf(const AtaRegisters &registers);

// Capabilities in IDENTIFY DEVICE data (ACS-3, 7.12).
struct AtaIdentity {
    bool smartSupported;    // word 82 bit 0
    bool smartEnabled;      // word 85 bit 0
    bool logsSupported;     // word 84 bit 5: general purpose logging
    bool wordsValid;        // words 83 and 87 say that the above count
    char serial[21];        // words 10 to 19
    char firmware[9];       // words 23 to 26
    char model[41];         // words 27 to 46
    char wwid[24];          // words 108 to 111 as "naa.", empty without one
    Maybe<bool> rotational; // word 217
    Maybe<uint32_t> rotationsPerMinute;
};

// None of a reply of fewer than 512 bytes, of one that is all zeros, and where word 0 says that it is no ATA device.
std::optional<AtaIdentity> identityOf(Bytes identify);

// Attributes of SMART READ DATA, and their thresholds if those are there. Both as many as of the 512 bytes are there.
void takeAttributes(Bytes data, Readings &readings);
void takeThresholds(Bytes thresholds, Readings &readings);
// Readings that have an attribute of a meaning on which makers agree, where they are not known yet.
void readAttributes(Readings &readings);

// Number of pages of a log in the directory.
uint32_t pagesOfLog(Bytes directory, uint8_t log);
// Whether page 00h of Device Statistics lists a page.
bool listsStatistics(Bytes supported, uint8_t page);
// What a page (1, 5 or 7) of Device Statistics reports: hours, power cycles and data; temperature; percentage used.
// Nothing, if it is another page's.
void takeStatistics(Bytes bytes, uint8_t page, Readings &readings);

} // namespace tavstrg::disks
