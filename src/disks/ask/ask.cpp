// SPDX-License-Identifier: Apache-2.0
#include "disks/ask/ask.h"

#include "devcmd/open_device.h"
#include "runtime/holders.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace tavstrg::disks {
namespace {

constexpr size_t kPathRoom = kNameRoom + 8;

// NVMe: the controller answers for all its namespaces.
void pathOf(const Disk &disk, char (&path)[kPathRoom])
{
    const bool controller = disk.protocol == Protocol::nvme && disk.queue[0] != '\0';
    std::snprintf(path, sizeof path, "/dev/%s", controller ? disk.queue : disk.name);
    for (char *c = path + 5; *c != '\0'; ++c) { // names of the kernel have '!' for '/'
        *c = *c == '!' ? '/' : *c;
    }
}

void askOpen(int fd, Disk &disk)
{
    switch (disk.protocol) {
    case Protocol::ata:
        askAta(fd, disk);
        break;
    case Protocol::scsi:
        askScsi(fd, disk);
        break;
    case Protocol::nvme:
        askNvme(fd, disk);
        break;
    case Protocol::none:
        break;
    }
}

} // namespace

Health healthOfError(int error, const char *node)
{
    Health health{};
    char reason[sizeof Health::reason];
    const ErrorText text(error);
    switch (error) {
    case EACCES:
    case EPERM:
        setHealth(health, HealthState::unknown, "", "not permitted to ask; root is");
        break;
    case ENOENT:
        std::snprintf(reason, sizeof reason, "there is no node %s", node);
        setHealth(health, HealthState::unknown, "", reason);
        break;
    case ENOTTY:
    case ENOSYS:
    case EOPNOTSUPP:
        setHealth(health, HealthState::unknown, "", "its driver passes no commands to the disk");
        break;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        std::snprintf(reason, sizeof reason, "could not be asked: %s", text.text());
        setHealth(health, HealthState::unknown, "", reason);
        break;
    default:
        std::snprintf(reason, sizeof reason, "does not answer: %s", text.text());
        setHealth(health, HealthState::unreadable, "kernel", reason);
        break;
    }
    return health;
}

bool mayBeAsked(const PowerAnswer &power, Disk &disk)
{
    if (power.error != 0) {
        disk.health = healthOfError(power.error, disk.name);
        return false;
    }
    if (power.state == PowerState::standby) {
        disk.readings.power = power.state;
        setHealth(disk.health, HealthState::asleep, power.source, "sleeps; it was not asked");
        return false;
    }
    return true;
}

void askDisk(Disk &disk)
{
    if (disk.protocol == Protocol::none) {
        if (disk.health.source[0] == '\0') { // the kernel may know how worn an eMMC is
            setHealth(disk.health, HealthState::unknown, "", "disks of this kind report no health");
        }
        return;
    }
    char path[kPathRoom];
    pathOf(disk, path);
    const FileDesc fd(openDevice(path, O_RDONLY | O_NONBLOCK));
    if (!fd) {
        disk.health = healthOfError(errno, path);
        return;
    }
    askOpen(fd.get(), disk);
}

} // namespace tavstrg::disks
