#include "devcmd/open_device.h"
#include "devcmd/transport/pages.h"
#include "devcmd/smart/exceptions_page.h"
#include "devcmd/smart/smart_kinds.h"
#include "devcmd/smart/smart_routine.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

namespace {

using PageBuffer = std::array<uint8_t, kPageBuffer>;

// The additional sense code of the Informational Exceptions log page; none, traced, when it cannot be had.
std::optional<uint8_t> readLog(const char *sender, int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0; // of a reply that came but says nothing, the error is 0
    const int result = logsense(fd, kExceptionsLogPage, buffer.data(), kLogLength);
    const int error = errno;
    if (result != 0) {
        return TRACED_AS(sender, std::nullopt, kFailure, "Log Sense :%s failed, errno=[%d]", path, error);
    }
    const std::optional<uint8_t> asc = judgeInformationalExceptionsLog(buffer);
    if (!asc) {
        TRACE_AS(sender, kFailure, "Log Sense %s failed, IE page, bad parameter code or length, errno=[%d]", path,
                 error);
    }
    return asc;
}

// The additional sense code that REQUEST SENSE brings; none, traced, when it fails.
std::optional<uint8_t> askSense(const char *sender, int fd, const char *path)
{
    PageBuffer buffer{};
    errno = 0;
    if (requestsense(fd, buffer.data()) != 0) {
        const int error = errno;
        return TRACED_AS(sender, std::nullopt, kFailure, "%s: requestsense failed, errno=[%d]", path, error);
    }
    TRACE_AS(sender, kDetail, "repcode=[%d]", responseCodeOf(buffer));
    const uint8_t asc = requestedSenseCode(buffer);
    return TRACED_AS(sender, asc, kDetail, "asc=[%d]", asc);
}

// The additional sense code by which the disk tells a prediction; none when it cannot be read.
std::optional<uint8_t> readExceptions(const char *sender, int fd, const char *path)
{
    int dSmartPage = 0;
    static_cast<void>(scsiGetSupportedLogPages(fd, &dSmartPage)); // fails on bad arguments alone
    std::optional<uint8_t> asc = uint8_t{0};
    if (dSmartPage == 1) {
        asc = readLog(sender, fd, path);
        if (!asc) {
            return asc;
        }
    }
    TRACE_AS(sender, kDetail, "dSmartPage=%d;asc =%d", dSmartPage, *asc);
    return *asc == 0 ? askSense(sender, fd, path) : asc;
}

} // namespace

void get_scsi_smart(HardDiskEntry *hdt)
{
    const char *const function = __func__;
    withOpenDisk(
        function, hdt,
        [function](HardDiskEntry &disk, int fd) {
            if (const std::optional<uint8_t> asc = readExceptions(function, fd, disk.DevPath)) {
                disk.SmartPredict = *asc == kFailurePredicted ? int16_t{1} : int16_t{0};
            } else {
                disk.SmartSupport = 1;
            }
        },
        [function](HardDiskEntry &disk, int error) {
            disk.SmartSupport = 1;
            TRACE_AS(function, kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
        });
}
