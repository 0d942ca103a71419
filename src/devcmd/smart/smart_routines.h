// SPDX-License-Identifier: Apache-2.0
// SMART of the three kinds of disk. Every routine opens DevPath for reading and writing, closes it again, and leaves
// its outcome in the entry; a null entry is traced and nothing is done.
//
// SmartSupport: 1 unknown, 2 supported and enabled, 3 not supported. SmartEnableState: 0 not read, 2 found enabled,
// 3 found disabled. SmartPredict: 0 good, 1 threshold exceeded, -1 unreadable.
#pragma once

#include "devcmd/hard_disk.h"
#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <fcntl.h>

// Plain SCSI: the Informational Exceptions mode and log pages, REQUEST SENSE.
void enable_scsi_smart(tavstrg::HardDiskEntry *hdt);  // sets SmartSupport
void disable_scsi_smart(tavstrg::HardDiskEntry *hdt); // SmartSupport becomes 1 when the page cannot be read
void get_scsi_smart(tavstrg::HardDiskEntry *hdt);     // sets SmartPredict; SmartSupport becomes 1 on failure
int fetch_scsi_enable_disable(
    tavstrg::HardDiskEntry *hdt); // sets SmartEnableState. Returns 0, or -1 when it cannot be read

// ATA and ATAPI through the IDE ioctls.
void enable_atapi_smart(tavstrg::HardDiskEntry *hdt);  // sets SmartSupport
void disable_atapi_smart(tavstrg::HardDiskEntry *hdt); // changes no field
void get_atapi_smart(tavstrg::HardDiskEntry *hdt);     // sets SmartPredict, or SmartSupport to 1 on failure

// ATA behind a SCSI layer, through ATA PASS-THROUGH; IDENTIFY goes through the IDE ioctl here too.
void enable_sata_smart(tavstrg::HardDiskEntry *hdt);  // sets SmartSupport
void disable_sata_smart(tavstrg::HardDiskEntry *hdt); // changes no field
void get_sata_smart(tavstrg::HardDiskEntry *hdt);     // sets SmartPredict; -1, with SmartSupport 1, on failure

// For both kinds of ATA disk: sets SmartEnableState. 0, or -1 when DevPath cannot be opened.
int fetch_ata_enable_disable(tavstrg::HardDiskEntry *hdt);

namespace tavstrg {

// Opens an entry's device for reading and writing, hands it to work(entry, descriptor), and closes it. A device that
// cannot be opened goes to refused(entry, errno) instead. Traces the entry, a null hdt and the exit under the name
// of its caller.
template <class Work, class Refused> void withOpenDisk(HardDiskEntry *hdt, Work work, Refused refused)
{
    TRACE(kDetail, "_IN_");
    if (hdt == nullptr) {
        TRACE(kFailure, "_OUT_ hdt is NULL");
        return;
    }
    const FileDesc device(openDevice(hdt->DevPath, O_RDWR));
    if (device) {
        work(*hdt, device.get());
    } else {
        refused(*hdt, errno);
    }
    TRACE(kDetail, "_OUT_");
}

} // namespace tavstrg
