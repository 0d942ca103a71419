// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"
#include "devcmd/smart/ata_command.h"
#include "devcmd/smart/identify.h"
#include "devcmd/smart/smart_routines.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>

using namespace tavstrg;

void enable_atapi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            if (!identifyAllowsSmart(fd, disk, IdentifyRetry::kAsItWas)) {
                return;
            }
            DriveCommand command = kIdeSmartEnable;
            if (::ioctl(fd, HDIO_DRIVE_CMD, command.data()) == 0) {
                disk.SmartSupport = 2;
                TRACE(kDetail, "%s: enable success", disk.DevPath);
            } else {
                const int error = errno;
                TRACE(kFailure, "ioctl HDIO_DRIVE_CMD :%s failed, errno=[%d]", disk.DevPath, error);
            }
        },
        [](HardDiskEntry &disk, int error) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device :%s failed, errno=[%d]", disk.DevPath, error);
        });
}

void disable_atapi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    DriveCommand command = kIdeSmartDisable;
    if (!device) {
        TRACE(kFailure, "open device :%s failed", hdt->DevPath);
    } else if (::ioctl(device.get(), HDIO_DRIVE_CMD, command.data()) != 0) {
        TRACE(kFailure, "ioctl HDIO_DRIVE_CMD :%s failed\n", hdt->DevPath);
    }
    // Deliberate: the exit reports success whatever happened.
    TRACE(kDetail, "_OUT_ disable device:[%s] success ", hdt->DevPath);
}

void get_atapi_smart(HardDiskEntry *hdt)
{
    const TraceScope scope;
    withOpenDisk(
        hdt,
        [](HardDiskEntry &disk, int fd) {
            DriveTask task = kIdeSmartStatus;
            if (::ioctl(fd, HDIO_DRIVE_TASK, task.data()) != 0) {
                disk.SmartSupport = 1;
                TRACE(kFailure, "ioctl HDIO_DRIVE_TASK :%s failed", disk.DevPath);
            } else {
                disk.SmartPredict = smartPredictOfTask(task);
            }
        },
        [](HardDiskEntry &disk, int) {
            disk.SmartSupport = 1;
            TRACE(kFailure, "open device :%s failed", disk.DevPath);
        });
}

// A disk refuses SMART READ DATA while SMART is switched off.
int fetch_ata_enable_disable(HardDiskEntry *hdt)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "hdt is null ");
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    hdt->SmartEnableState = 0;
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (!device) {
        TRACE(kFailure, "open device :%s failed", hdt->DevPath);
        return TRACED(-1, kFailure, "_OUT_ ret=[%d]", -1);
    }
    constexpr size_t kSector = 512;
    std::array<uint8_t, std::tuple_size_v<DriveCommand> + kSector> block{};
    std::copy(kIdeSmartReadData.begin(), kIdeSmartReadData.end(), block.begin());
    const int status = ::ioctl(device.get(), HDIO_DRIVE_CMD, block.data());
    if (status != 0) {
        hdt->SmartEnableState = 3;
        TRACE(kFailure, "ioctl (HDIO_DRIVE_CMD) status = %d, %s smart disable", status, hdt->DevPath);
    } else {
        hdt->SmartEnableState = 2;
        TRACE(kDetail, "ioctl (HDIO_DRIVE_CMD) status = %d, %s smart enable", status, hdt->DevPath);
    }
    return TRACED(0, kDetail, "_OUT_ ret=[%d]", 0);
}
