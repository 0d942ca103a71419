// SPDX-License-Identifier: Apache-2.0
// SMART of a hard disk by what the disk itself reports. What it did not report is unknown, neither good nor off.
#pragma once

#include "devcmd/hard_disk.h"

namespace tavstrg {

constexpr int16_t kVerdictUnknown = -1; // SmartPredict

// What else is asked of a disk while its SMART is on. context outlives the call that it is handed to.
struct WhileSmartOn {
    void (*work)(void *context) = nullptr; // null: nothing
    void *context = nullptr;
};

// Called once for every SCSI hard disk of a collection, after fetch_sata_type, with DevKind, DevPath and fresh SMART
// fields, in which the outcome is. Asks whether SMART is on (IDENTIFY, or the Informational Exceptions Control mode
// page), switches it on, reads the verdict, does the other work, and switches SMART off again only if the disk reported
// that it was off. A disk that cannot be asked whether SMART is on is not switched on.
//
// SmartPredict is 0 or 1 only if the disk gave that verdict, else -1, also where it has no SMART. With a SMART mode
// other than 1 the entry stays as it is, and the other work is all that is done.
void watchSmartState(HardDiskEntry &disk, const WhileSmartOn &whileOn);

} // namespace tavstrg
