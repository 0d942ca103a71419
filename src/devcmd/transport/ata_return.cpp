// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/ata_return.h"

using namespace tavstrg;

namespace {

constexpr uint8_t kCurrentFixed = 0x70;      // response code: fixed format, about this command
constexpr uint8_t kCurrentDescriptor = 0x72; // descriptor format, about this command
constexpr uint8_t kAtaInformationAscq = 0x1D;

// NO SENSE or RECOVERED ERROR, ATA PASS THROUGH INFORMATION AVAILABLE.
bool announcesRegisters(const SenseInfo &info)
{
    return info.sense_key <= 1 && info.asc == 0 && info.ascq == kAtaInformationAscq;
}

} // namespace

std::optional<AtaRegisters> tavstrg::ataRegistersOf(std::span<const uint8_t> sense)
{
    SenseInfo info{};
    static_cast<void>(decodeSense(sense, info));
    if (info.response_code == kCurrentDescriptor) {
        const auto found = findSenseDescriptor(sense, kAtaReturnDescriptor);
        if (found.size() >= kAtaReturnLength && found[1] + 2U >= kAtaReturnLength) {
            return registersOfDescriptor(found.first<kAtaReturnLength>());
        }
    } else if (info.response_code == kCurrentFixed && announcesRegisters(info) &&
               sense.size() >= kFixedThroughQualifier) {
        return registersOfFixed(sense.first<kFixedThroughQualifier>());
    }
    return std::nullopt;
}
