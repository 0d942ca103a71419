// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/ask.h"
#include "disks/ask/nvme_command.h"
#include "disks/ask/nvme_decode.h"
#include "disks/ask/verdict.h"

#include "runtime/cancel.h"

#include <cerrno>
#include <cstdio>
#include <sys/ioctl.h>

namespace tavstrg::disks {

void askNvme(int fd, Disk &disk)
{
    std::array<uint8_t, kHealthLogLength> log{};
    nvme_admin_cmd command = healthLogCommand(log);
    cancelIfAsked(); // a disk that was set aside gets no command when its node opens after all
    const int status = ::ioctl(fd, NVME_IOCTL_ADMIN_CMD, &command);
    if (status < 0) {
        disk.health = healthOfError(errno, disk.name);
        return;
    }
    disk.readings = Readings{};
    if (status > 0) { // of the controller: code type and code
        char reason[sizeof Health::reason];
        std::snprintf(reason, sizeof reason, "the controller refuses its health log (status %03Xh)",
                      static_cast<unsigned>(status) & 0x7FFU);
        setHealth(disk.health, HealthState::unknown, "NVMe health log", reason);
        return;
    }
    const Maybe<uint8_t> warning = takeHealthLog(log, disk.readings);
    if (!warning) {
        setHealth(disk.health, HealthState::unknown, "NVMe health log", "the controller's health log is empty");
        return;
    }
    disk.readings.power = PowerState::active;
    disk.health = judgeNvme(warning.value, disk.readings);
}

} // namespace tavstrg::disks
