// SPDX-License-Identifier: Apache-2.0
// What the alerts of a pass are decided by, and the two steps of a pass that send those about one disk.
#pragma once

#include "monitor/alert.h"
#include "store/store.h"

#include <optional>
#include <span>

namespace tavstrg {

// The records of a descriptor that nobody changes meanwhile: a collection's own, or the store's under g_recordsLock.
template <class Rec> std::span<Rec> recordsOf(const DatInfo &dat)
{
    if (dat.datAdr == nullptr || dat.datNum <= 0) {
        return {};
    }
    return {static_cast<Rec *>(dat.datAdr), static_cast<size_t>(dat.datNum)};
}

// Whether a disk in SMART error state is to be alerted: its status is not what is stored at its position, or nothing is
// stored there.
bool smartAlertDue(std::span<const StrgHddRec> stored, size_t position, int16_t smartStatus);

// The SCSI device record of a hard disk by its number in the hard-disk class; null when there is none. Devices of the
// other kinds are numbered in their own classes, and deliberately not told apart.
const StrgScsiRec *deviceOfDisk(std::span<const StrgScsiRec> devices, int32_t number);

// The stored level of a disk, which is matched by its serial number wherever it was when it was stored; nothing when it
// was not stored, or stored without a level. Deliberate: an empty serial number matches the first device.
std::optional<int16_t> storedLevel(std::span<const StrgScsiRec> devices, std::span<const StrgLifeRec> levels,
                                   const StrgScsiRec &disk);

// Event of a life-span level; 0, which is none, for a level outside 1 to 5.
uint32_t lifeSpanEvent(int16_t level);

// A disk as its alert describes it; all zero but for the interface type where the device is not there.
alertDiskSt describeDisk(const StrgScsiRec *device, int16_t interfaceType);

// Frees the records of a collection, classes 2 to 10, traced in the name of function.
void freeCollected(DatInfo *current);

// Alerts each disk that is newly in SMART error state, unless the stored configuration switches SMART handling off. 0,
// or -1 when the pass cannot go on: traced in the name of function up to its exit, and freed what is to be freed there.
int strgAlertSmart(DatInfo *current);
// Alerts each changed life-span level. A level that could not be read this time becomes the stored one. 0, or -1 as
// above.
int strgAlertLifeSpan(DatInfo *current);

} // namespace tavstrg
