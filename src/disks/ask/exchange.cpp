// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/exchange.h"

#include "runtime/cancel.h"

#include <algorithm>

namespace tavstrg::disks {

bool Exchange::succeeded() const
{
    if (error != 0) {
        return false;
    }
    if (status == 0) {
        return true;
    }
    constexpr uint8_t kRecoveredError = 1;
    SenseInfo info{};
    const SenseFormat format = decodeSense(sense(), info);
    const bool known = format == SenseFormat::kFixed || format == SenseFormat::kDescriptor;
    return status == kCheckCondition && known && info.sense_key <= kRecoveredError;
}

Exchange exchangeScsi(int fd, std::span<const uint8_t> cdb, std::span<uint8_t> data)
{
    cancelIfAsked(); // a disk that was set aside gets no further command when it answers after all
    Exchange result;
    std::array<uint8_t, 16> bytes{};
    const size_t length = std::min(cdb.size(), bytes.size());
    std::copy_n(cdb.begin(), length, bytes.begin());
    std::fill(data.begin(), data.end(), uint8_t{0});
    ScsiIoRequest request =
        scsiRequest({bytes.data(), length}, {data.empty() ? DIR_NONE : DIR_FROM_DEVICE, data}, result.senseBytes);
    const int sent = _sg_IoctlCommon(fd, &request);
    result.error = sent < 0 ? -sent : 0;
    result.status = request.scsi_status;
    result.senseLength = std::min(request.sense_len, result.senseBytes.size());
    return result;
}

} // namespace tavstrg::disks
