// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/wear.h"

#include "devcmd/open_device.h"
#include "devcmd/transport/sg_header.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>

using namespace tavstrg;

namespace {

using SmartData = std::array<uint8_t, kSmartDataLength>;

// Deliberate: SG_IO whatever transport the other commands use, without a sense buffer, and with the kernel's time-out.
int readSmartData(int fd, SmartData &data)
{
    auto cdb = kSmartReadDataCdb;
    ScsiIoRequest request = scsiRequest(cdb, {DIR_FROM_DEVICE, data});
    request.timeout_sec = 0;
    sg_io_hdr header = sgHeader(request, SG_DXFER_FROM_DEV);
    return ::ioctl(fd, SG_IO, &header);
}

void traceAttribute(const SmartAttribute &a)
{
    TRACE(kDetail, "#### SMART AttrID   =%03d ####", a.id);
    TRACE(kDetail, "#### Flags          =%02x%02x ####", a.flags[1], a.flags[0]);
    TRACE(kDetail, "#### Current Value  =%03d ####", a.current);
    TRACE(kDetail, "#### Worst Value    =%03d ####", a.worst);
    TRACE(kDetail, "#### Raw            =%02x %02x %02x %02x %02x %02x ####", a.raw[0], a.raw[1], a.raw[2], a.raw[3],
          a.raw[4], a.raw[5]);
    TRACE(kDetail, "#### Threshold      =%03d ####", a.threshold);
}

} // namespace

int GetLifeSpanInfoIoctl(const char *devName, uint8_t attID, uint16_t *endurance)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (devName == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(devName) Failure!!");
    }
    if (attID == 0) {
        return TRACED(-1, kFailure, "_OUT_ param(attID) Failure!!");
    }
    if (endurance == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ param(endurance) Failure!!");
    }
    SmartData data{};
    {
        const FileDesc device(openDevice(devName, O_RDONLY));
        if (!device) {
            const int error = errno;
            return TRACED(-1, kFailure, "_OUT_ open err : %s", ErrorText(error).text());
        }
        if (readSmartData(device.get(), data) < 0) {
            const int error = errno;
            return TRACED(-1, kFailure, "_OUT_ ioctl SG_IO Failure!! %s", ErrorText(error).text());
        }
    }
    SmartAttribute attribute{};
    if (findSmartAttribute(data, attID, attribute)) {
        traceAttribute(attribute);
        *endurance = enduranceOf(attribute);
        if (attID != kWearPercentUsed) {
            TRACE(kDetail, "#### endurance=%03d         ####", *endurance);
        }
    }
    return TRACED(0, kDetail, "_OUT_ endurance=[%d] ", *endurance);
}

bool tavstrg::findSmartAttribute(std::span<const uint8_t> data, uint8_t id, SmartAttribute &attribute)
{
    for (size_t i = 0; i < kSmartAttributes; ++i) {
        const size_t at = kSmartAttributesAt + i * sizeof(SmartAttribute);
        if (at + sizeof(SmartAttribute) > data.size()) {
            return false;
        }
        if (data[at] == id) {
            std::memcpy(&attribute, data.data() + at, sizeof attribute);
            return true;
        }
    }
    return false;
}

uint16_t tavstrg::enduranceOf(const SmartAttribute &attribute)
{
    return attribute.id == kWearPercentUsed ? static_cast<uint16_t>(100 - attribute.raw[1]) : attribute.current;
}
