// SPDX-License-Identifier: Apache-2.0
// Sense data: no byte beyond it counts, whatever lengths it claims.
#include "devcmd/transport/sense.h"
#include "devcmd/transport/ata_return.h"
#include "devcmd/transport/power_mode.h"
#include "devcmd/transport/sat_command.h"
#include "fuzz/fuzz.h"

using namespace tavstrg;

using fuzz::Bytes;
using fuzz::require;

namespace {

constexpr int kSelectors[] = {SATCMD_SMART_ENABLE,       SATCMD_SMART_DISABLE, SATCMD_SMART_STATUS,
                              SATCMD_SMART_STATUS_CHECK, SATCMD_IDENTIFY,      SATCMD_IDENTIFY_PACKET};

bool isOneOf(uint8_t value, Bytes sense, size_t position)
{
    return value == 0 || (position < sense.size() && sense[position] == value);
}

SenseFormat checkDecoding(Bytes sense, SenseInfo &info)
{
    const SenseFormat format = decodeSense(sense, info);
    if (format == SenseFormat::kNone) {
        require(sense.empty() || (sense[0] & 0x7F) < 0x70, "sense data of a known format are sense data");
        return format;
    }
    require(info.response_code == (sense[0] & 0x7F), "the response code is that of byte 0");
    require(info.sense_key <= 0x0F, "a sense key has four bits");
    const bool fixed = format == SenseFormat::kFixed;
    require(isOneOf(info.asc, sense, fixed ? 12 : 2), "the code is what was sent, or 0");
    require(isOneOf(info.ascq, sense, fixed ? 13 : 3), "the qualifier is what was sent, or 0");
    require(format == SenseFormat::kDescriptor || info.additional_length == 0, "the length is descriptor format's");
    return format;
}

void checkSatVerdicts(const SenseInfo *info, Bytes ataReturn)
{
    require(ataReturn.size() <= 14, "an ATA Return descriptor has at most 14 bytes");
    for (const int selector : kSelectors) {
        for (const bool ckCond : {false, true}) {
            const SatOutcome outcome = judgeSatReply(selector, ckCond, info, ataReturn);
            const bool smart = outcome == SatOutcome::kSmartGood || outcome == SatOutcome::kSmartExceeded;
            require(!smart || (ckCond && selector == SATCMD_SMART_STATUS_CHECK && ataReturn.size() >= 12),
                    "a SMART verdict was asked for and comes from whole registers");
            require(outcome != SatOutcome::kSmartExceeded || (ataReturn[9] == 0xF4 && ataReturn[11] == 0x2C),
                    "a failing disk says so");
        }
    }
}

void checkDescriptor(Bytes sense, int type, const SenseInfo *info)
{
    const Bytes found = findSenseDescriptor(sense, type);
    if (found.empty()) {
        return;
    }
    require(found.data() >= sense.data() + 8 && found.data() + found.size() == sense.data() + sense.size(),
            "a descriptor reaches to the end of the sense data");
    require(found.size() >= 2 && found[0] == type, "a descriptor is of the type that was asked for");
    checkSatVerdicts(info, ataReturnBytes(found));
}

// Registers are announced, whole, and in the place of their format.
void checkRegisters(Bytes sense)
{
    if (const std::optional<AtaRegisters> registers = ataRegistersOf(sense)) {
        const bool fixed = (sense[0] & 0x7F) == 0x70;
        require(sense.size() >= (fixed ? 14U : 22U), "registers are whole");
        require(!fixed || (sense[12] == 0 && sense[13] == 0x1D && sense[4] == registers->status &&
                           sense[6] == registers->count && sense[10] == registers->lbaMid),
                "registers in fixed format are announced");
        require(smartVerdictOf(*registers) == SmartVerdict::kUnknown || (registers->status & 1) == 0,
                "an aborted command gives no verdict");
    }
    require(powerModeOfSense(sense) == PowerMode::kUnknown || (sense[0] & 0x70) == 0x70,
            "a power mode comes from sense data");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes sense(data, size);
    SenseInfo info{};
    const bool decoded = checkDecoding(sense, info) != SenseFormat::kNone;
    for (int type = 0; type <= 0xFF; ++type) {
        checkDescriptor(sense, type, decoded ? &info : nullptr);
    }
    checkRegisters(sense);
    SenseInfo traced{};
    const int result = scsi_chk_sense_data_format(data, size, &traced);
    require((result == 0) == (decoded && info.response_code <= 0x73), "0 tells a format that is known");
    const int type = size > 8 ? data[8] : kAtaReturnDescriptor;
    const uint8_t *const found = scsi_find_sense_data(data, size, type);
    require(found == findSenseDescriptor(sense, type).data(), "both find the same descriptor");
    return 0;
}
