// SPDX-License-Identifier: Apache-2.0
// The ATA registers that a SAT layer returns in sense data, in either format, and what they mean. Pure; no byte beyond
// the sense data is read, whatever lengths the bytes claim.
#pragma once

#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/sense.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tavstrg {

// The low bytes of the registers as the command left them (ACS-3, output fields).
struct AtaRegisters {
    uint8_t error = 0;
    uint8_t status = 0;
    uint8_t device = 0;
    uint8_t count = 0;
    uint8_t lbaLow = 0;
    uint8_t lbaMid = 0;
    uint8_t lbaHigh = 0;

    bool operator==(const AtaRegisters &) const = default;
};

constexpr uint8_t kAtaStatusError = 0x01;       // ERR: the command was aborted
constexpr uint8_t kAtaStatusDeviceFault = 0x20; // DF

// Whether the device carried the command out. A command that it aborts leaves the other registers as they were sent.
constexpr bool ataSucceeded(const AtaRegisters &registers)
{
    return (registers.status & (kAtaStatusError | kAtaStatusDeviceFault)) == 0;
}

// Bytes of an ATA Status Return descriptor (SAT-3, 12.2.6).
constexpr size_t kAtaReturnLength = 14;
// Bytes of fixed-format sense data up to the additional sense code qualifier (SPC-4, 4.5.3).
constexpr size_t kFixedThroughQualifier = 14;

constexpr AtaRegisters registersOfDescriptor(std::span<const uint8_t, kAtaReturnLength> d)
{
    return {.error = d[3],
            .status = d[13],
            .device = d[12],
            .count = d[5],
            .lbaLow = d[7],
            .lbaMid = d[9],
            .lbaHigh = d[11]};
}

// SAT-3, 12.2.7: the INFORMATION field (bytes 3 to 6) and the COMMAND-SPECIFIC INFORMATION field (bytes 8 to 11).
constexpr AtaRegisters registersOfFixed(std::span<const uint8_t, kFixedThroughQualifier> s)
{
    return {.error = s[3],
            .status = s[4],
            .device = s[5],
            .count = s[6],
            .lbaLow = s[9],
            .lbaMid = s[10],
            .lbaHigh = s[11]};
}

// The registers in sense data; nothing where there are none. Fixed format has no place of their own for them: they
// count only with the code that announces them (ATA PASS THROUGH INFORMATION AVAILABLE), and never in a deferred error,
// which is about another command.
std::optional<AtaRegisters> ataRegistersOf(std::span<const uint8_t> sense);

enum class SmartVerdict { kUnknown, kGood, kExceeded };

// Verdict of SMART RETURN STATUS: known only where the command succeeded and left one of its two signatures.
constexpr SmartVerdict smartVerdictOf(const AtaRegisters &registers)
{
    if (!ataSucceeded(registers)) {
        return SmartVerdict::kUnknown;
    }
    if (registers.lbaMid == kSmartLbaMid && registers.lbaHigh == kSmartLbaHigh) {
        return SmartVerdict::kGood;
    }
    return registers.lbaMid == kSmartExceededLbaMid && registers.lbaHigh == kSmartExceededLbaHigh
               ? SmartVerdict::kExceeded
               : SmartVerdict::kUnknown;
}

static_assert(smartVerdictOf({.status = 0x50, .lbaMid = 0x4F, .lbaHigh = 0xC2}) == SmartVerdict::kGood);
static_assert(smartVerdictOf({.status = 0x50, .lbaMid = 0xF4, .lbaHigh = 0x2C}) == SmartVerdict::kExceeded);
static_assert(smartVerdictOf({.status = 0x51, .lbaMid = 0x4F, .lbaHigh = 0xC2}) == SmartVerdict::kUnknown);

} // namespace tavstrg
