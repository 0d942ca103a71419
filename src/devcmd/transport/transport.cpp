// SPDX-License-Identifier: Apache-2.0
#include "devcmd/transport/transport.h"

#include "devcmd/open_device.h"
#include "devcmd/transport/sg_header.h"
#include "runtime/trace.h"

#include <cerrno>
#include <optional>
#include <sys/ioctl.h>

using namespace tavstrg;

std::atomic<int32_t> use_sg_io = 1;

namespace {

std::optional<int> kernelDirection(int32_t direction)
{
    switch (direction) {
    case DIR_NONE:
        return SG_DXFER_NONE;
    case DIR_FROM_DEVICE:
        return SG_DXFER_FROM_DEV;
    case DIR_TO_DEVICE:
        return SG_DXFER_TO_DEV;
    default:
        return std::nullopt;
    }
}

// Reports a reply of the kernel and takes it over into the request. Traces under the name of its caller.
int takeReply(const sg_io_hdr &header, ScsiIoRequest &request)
{
    request.scsi_status = header.status;
    switch (judgeTransport(header.host_status, header.driver_status)) {
    case TransportOutcome::kHostTimeout:
        return TRACED(-ETIMEDOUT, kDetail, "host_status timeout %x", header.host_status);
    case TransportOutcome::kHostError:
        return TRACED(-EIO, kFailure, "host_status io error %x", header.host_status);
    case TransportOutcome::kDriverTimeout:
        return TRACED(-ETIMEDOUT, kFailure, "driver_status timeout %x", header.driver_status);
    case TransportOutcome::kDriverError:
        return TRACED(-EIO, kFailure, "driver_status io error %x", header.driver_status);
    case TransportOutcome::kGoodWithSense:
        TRACE(kDetail, "include driver sense data");
        request.scsi_status = kCheckCondition;
        break;
    case TransportOutcome::kGood:
        break;
    }
    request.sense_len = header.sb_len_wr;
    return 0;
}

int sendRequest(int fd, ScsiIoRequest *request)
{
    if (fd < 0 || request == nullptr) {
        return TRACED(-1, kFailure, "Invalid parameters");
    }
    const std::optional<int> direction = kernelDirection(request->direction);
    if (!direction) {
        return TRACED(-EINVAL, kFailure, "Not support this kind of dirct %d", request->direction);
    }
    sg_io_hdr header = sgHeader(*request, *direction);
    if (::ioctl(fd, SG_IO, &header) < 0) {
        const int error = errno;
        request->scsi_status = 0;
        return TRACED(-error, kFailure, "ioctl failed,%s", ErrorText(error).text());
    }
    return takeReply(header, *request);
}

} // namespace

int _sg_IoctlCommon(int fd, ScsiIoRequest *request)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    const int result = sendRequest(fd, request);
    return TRACED(result, kDetail, "_OUT_ [%d]", result);
}
