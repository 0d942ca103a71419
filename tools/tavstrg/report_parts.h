// SPDX-License-Identifier: Apache-2.0
// The parts of the page. Each returns markup in which every text that is not the tool's own is escaped.
#pragma once

#include "tavstrg/disks.h"

#include <string>
#include <string_view>
#include <vector>

namespace tool {

extern const std::string_view kReportStyle;
extern const std::string_view kReportScript; // sorts the table; neither "<" nor "&", which XML would read
extern const std::string_view kReportSigns;  // the signs of the states, drawn once

// All states, the worst first.
inline constexpr HealthState kWorstFirst[] = {HealthState::failing, HealthState::unreadable, HealthState::warning,
                                              HealthState::off,     HealthState::unknown,    HealthState::asleep,
                                              HealthState::good};
int rankOf(HealthState state); // its place there

// The sign of a state, as large as the text beside it; the word for it must stand beside it or in a title.
std::string signMarkup(HealthState state);

// A time as people read it, "2026-01-31 23:59 UTC", in an element that says it exactly.
std::string timeMarkup(int64_t seconds);

// The machine: its adapters, below each its bays. A bay leads to the disk's row of the table.
std::string pictureMarkup(const std::vector<Disk> &disks);

std::string tableMarkup(const std::vector<Disk> &disks);

} // namespace tool
