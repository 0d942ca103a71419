// SPDX-License-Identifier: Apache-2.0
// How worn an eMMC is, by what the kernel read of it when it was found
// (Documentation/driver-api/mmc/mmc-dev-attrs.rst). Pure.
#pragma once

#include "disks/disk.h"

#include <string_view>

namespace tavstrg::disks {

// Takes endurance used and health from the attributes life_time ("0x02 0x01": memory of types A and B, in tenths) and
// pre_eol_info ("0x01": reserved blocks). The percentage is the least that a tenth means; 100 is beyond the estimated
// life. Leaves the disk as it is where neither says anything, as SD cards do.
void takeCardLife(std::string_view lifeTime, std::string_view preEolInfo, Disk &disk);

} // namespace tavstrg::disks
