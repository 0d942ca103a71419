// SPDX-License-Identifier: Apache-2.0
// The decisions behind the alerts of a pass, and the two steps of a pass that send alerts about a disk.
#pragma once

#include "monitor/alert.h"
#include "store/store.h"

#include <optional>
#include <span>

namespace tavstrg {

// Whether a disk in SMART error state needs an alert: its status differs from the stored one at its position, or none
// is stored there.
bool smartAlertDue(std::span<const StrgHddRec> stored, size_t position, int16_t smartStatus);

// Returns the SCSI device record with a number of the hard-disk class, or null. Deliberate: a device of another kind,
// which is numbered in its own class, matches too.
const StrgScsiRec *deviceOfDisk(std::span<const StrgScsiRec> devices, int32_t number);

// Returns the stored level of a disk, which is found by its serial number at any position; nothing if the disk or its
// level is not stored. Deliberate: an empty serial number matches the first device.
std::optional<int16_t> storedLevel(std::span<const StrgScsiRec> devices, std::span<const StrgLifeRec> levels,
                                   const StrgScsiRec &disk);

// Event of a life-span level; 0, which is none, for a level outside 1 to 5.
uint32_t lifeSpanEvent(int16_t level);

// A disk as its alert describes it; all zero but for the interface type where the device is not there.
alertDiskSt describeDisk(const StrgScsiRec *device, int16_t interfaceType);

// Frees the records of a collection, classes 2 to 10, with trace lines.
void freeCollected(DatInfo *current);

// Alerts each disk that is newly in SMART error state, unless the stored configuration switches SMART handling off.
// Returns 0, or -1 if the pass cannot go on; the pass's exit is then traced, and freed is what has to be freed there.
int strgAlertSmart(DatInfo *current);
// Alerts each changed life-span level. A level that could not be read this time becomes the stored one. Returns 0, or
// -1 as above.
int strgAlertLifeSpan(DatInfo *current);

} // namespace tavstrg
