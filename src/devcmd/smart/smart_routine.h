// SPDX-License-Identifier: Apache-2.0
// The frame that the SMART routines of all kinds share: for them alone.
#pragma once

#include "devcmd/hard_disk.h"
#include "devcmd/open_device.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <fcntl.h>

// Opens an entry's device for reading and writing, hands it to work(entry, descriptor), and closes it. A device that
// cannot be opened goes to refused(entry, errno) instead. Traces the entry, a null hdt and the exit in the name of
// function.
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
