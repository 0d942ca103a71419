// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"
#include "devcmd/transport/sat_command.h"
#include "devcmd/transport/transport.h"
#include "runtime/field_text.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <array>
#include <fcntl.h>
#include <string_view>

using namespace tavstrg;

namespace {

constexpr size_t kInquiryLength = 64; // standard INQUIRY data that is asked for

// T10 VENDOR IDENTIFICATION of the standard INQUIRY data (SPC-4, 6.4.2).
constexpr size_t kVendorAt = 8;
constexpr size_t kVendorLength = 8;
constexpr std::string_view kAtaVendor = "ATA     "; // what a SAT layer puts there

using InquiryData = std::array<uint8_t, kInquiryLength>;

// What a device does not send stays zero. Transport result of _sg_IoctlCommon.
int sendInquiry(int fd, InquiryData &data)
{
    std::array<uint8_t, 6> cdb{0x12, 0, 0, 0, kInquiryLength, 0};
    std::array<uint8_t, kSenseLength> sense{};
    ScsiIoRequest request = scsiRequest(cdb, {DIR_FROM_DEVICE, data}, sense);
    return _sg_IoctlCommon(fd, &request);
}

std::string_view vendorOf(const InquiryData &data)
{
    return {reinterpret_cast<const char *>(data.data()) + kVendorAt, kVendorLength};
}

} // namespace

void fetch_sata_type(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        TRACE(kFailure, "open device failed. [%s]", hdt->DevPath);
        TRACE(kFailure, "_OUT_");
        return;
    }
    InquiryData data{};
    if (sendInquiry(device.get(), data) != 0) {
        TRACE(kFailure, "ioctl error failed. [%s]", hdt->DevPath);
        TRACE(kFailure, "_OUT_");
        return;
    }
    char manufacturer[kVendorLength + 1];
    copyText(manufacturer, vendorOf(data));
    TRACE(kDetail, "manufacturer [%s]", manufacturer);
    if (vendorOf(data) == kAtaVendor && sat_ata_pass_through(device.get(), 0) == 0) {
        hdt->DevKind = kDevKindSata;
        TRACE(kDetail, "[%s] is SATA.", hdt->DevPath);
    }
    TRACE(kDetail, "_OUT_");
}
