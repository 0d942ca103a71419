// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"
#include "devcmd/smart/exceptions_page.h"
#include "devcmd/smart/smart_kinds.h"
#include "devcmd/smart/smart_routine.h"
#include "devcmd/transport/pages.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

namespace {

using PageBuffer = std::array<uint8_t, kPageBuffer>;

// The additional sense code of the Informational Exceptions log page; none, traced, when it cannot be had.
std::optional<uint8_t> readLog(int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0; // of a reply that came but says nothing, the error is 0
    const int result = logsense(fd, kExceptionsLogPage, buffer.data(), kLogLength);
    const int error = errno;
    if (result != 0) {
        return TRACED(std::nullopt, kFailure, "Log Sense :%s failed, errno=[%d]", path, error);
    }
    const std::optional<uint8_t> asc = judgeInformationalExceptionsLog(buffer);
    if (!asc) {
        TRACE(kFailure, "Log Sense %s failed, IE page, bad parameter code or length, errno=[%d]", path, error);
    }
    return asc;
}

// The additional sense code that REQUEST SENSE brings; none, traced, when it fails.
std::optional<uint8_t> askSense(int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0;
    if (requestsense(fd, buffer.data()) != 0) {
        const int error = errno;
        return TRACED(std::nullopt, kFailure, "%s: requestsense failed, errno=[%d]", path, error);
    }
    TRACE(kDetail, "repcode=[%d]", responseCodeOf(buffer));
    const uint8_t asc = requestedSenseCode(buffer);
    return TRACED(asc, kDetail, "asc=[%d]", asc);
}

// The additional sense code by which the disk tells a prediction; none when it cannot be read.
std::optional<uint8_t> readExceptions(int fd, const char *path)
{
    int dSmartPage = 0;
    static_cast<void>(scsiGetSupportedLogPages(fd, &dSmartPage)); // fails on bad arguments alone
    std::optional<uint8_t> asc = uint8_t{0};
    if (dSmartPage == 1) {
        asc = readLog(fd, path);
        if (!asc) {
            return asc;
        }
    }
    TRACE(kDetail, "dSmartPage=%d;asc =%d", dSmartPage, *asc);
    return *asc == 0 ? askSense(fd, path) : asc;
}

} // namespace

void get_scsi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            if (const std::optional<uint8_t> asc = readExceptions(fd, disk.DevPath)) {
                disk.SmartPredict = *asc == kFailurePredicted ? int16_t{1} : int16_t{0};
            } else {
                disk.SmartSupport = 1;
            }
        },
        [](HardDiskEntry &disk, int error) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
        });
}
