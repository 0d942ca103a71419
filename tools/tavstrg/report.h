// SPDX-License-Identifier: Apache-2.0
// A machine's disks as one page for a browser: it loads nothing, works without script, and is well-formed XML too.
#pragma once

#include "tavstrg/disks.h"

#include <string>

namespace tool {

// The disks that need attention, the machine as a picture, and all disks as a table.
std::string reportPage(const DiskReport &report);

} // namespace tool
