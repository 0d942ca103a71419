// SPDX-License-Identifier: Apache-2.0
#include "devcmd/smart/wear.h"

#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

using namespace tavstrg;

namespace {

using SmartData = std::array<uint8_t, kSmartDataLength>;

// Deliberate: a request of its own, without sense buffer and time-out (the kernel's default holds), whatever transport
// the other commands use.
int readSmartData(int fd, SmartData &data)
{
    auto cdb = kSmartReadDataCdb;
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(cdb.size());
    header.dxfer_len = static_cast<unsigned>(data.size());
    header.dxferp = data.data();
    header.cmdp = cdb.data();
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
