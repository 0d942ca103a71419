// SPDX-License-Identifier: Apache-2.0
// Asking one disk. What is sent only reads; a disk that sleeps is left asleep, and no command is sent that the disk
// does not announce.
#pragma once

#include "disks/disk.h"

namespace tavstrg::disks {

// Asks the disk by its protocol: sets readings and health, and serial number, model, firmware and world wide name where
// sysfs did not have them. A disk that takes no commands keeps what sysfs said of its health. Opens the disk's node,
// for NVMe that of its controller, read-only. Readings of a disk that sleeps stay as they are, but for the power state.
void askDisk(Disk &disk);

// Of askDisk, for disks on a descriptor that is open. They return without a trace of what the transport traces.
void askAta(int fd, Disk &disk);
void askScsi(int fd, Disk &disk);
void askNvme(int fd, Disk &disk);

// The health of a disk whose node could not be opened, or whose command failed, with this errno value: unreadable where
// the disk does not answer; unknown, without a source, where this process may not ask or the driver takes no commands.
// node: for the reason.
Health healthOfError(int error, const char *node);

// What a disk answered when it was asked for its power state.
struct PowerAnswer {
    PowerState state;
    int error;          // errno of a command that was not carried, else 0
    const char *source; // the command
};
// Whether the disk may be asked more. If not, its health says why.
bool mayBeAsked(const PowerAnswer &power, Disk &disk);

} // namespace tavstrg::disks
