// SPDX-License-Identifier: Apache-2.0
// The last values of a disk from the stored records: after a start, those of the saved state.
#pragma once

#include "collect/devices/last_values.h"
#include "endurance/endurance.h"
#include "records/records.h"

#include <optional>
#include <span>

namespace tavstrg {

// What the kernel knows of the disk that is looked for.
struct SoughtDisk {
    ScsiAddress address;
    const char *vendor;
    const char *model;
    const char *serial; // empty if the kernel knows none
};

// The records among which it is looked for.
struct StoredDisks {
    std::span<const StrgScsiRec> devices;
    std::span<const StrgHddRec> disks;
    std::span<const StrgLifeRec> lives;
};

// The values of a disk, which is found by its model and serial number at any position. A disk whose serial number the
// kernel does not know is found by its channel, target, LUN, vendor and model, if only one disk has these.
std::optional<LastValues> findStored(const StoredDisks &stored, const SoughtDisk &sought);

// A figure that has this level; nothing for no level.
std::optional<uint16_t> figureOfLevel(const M2SSDInf &rated, int16_t level);

// The same from the store's records as they are now.
std::optional<LastValues> readStored(const SoughtDisk &sought);

} // namespace tavstrg
