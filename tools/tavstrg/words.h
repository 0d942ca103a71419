// SPDX-License-Identifier: Apache-2.0
// What the provider's numbers mean, in words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

// Interface codes of controllers, hard disks and the device classes.
constexpr int kScsi = 0;
constexpr int kIde = 1;

// SMART states of a hard disk beside 0, nothing reported.
constexpr int kFailurePredicted = 1;
constexpr int kStatusNotReadable = -1;

// Remaining endurance goes from 1 (least) to 5 (most).
constexpr int kMostEndurance = 5;
constexpr int kLifeSpanNotRead = -1;

std::string interfaceWords(int interfaceType); // "SCSI", "IDE", "unknown interface"

// Kind of a device by its DeviceType. SCSI and IDE devices have codes of their own, which overlap.
std::string deviceTypeWords(int interfaceType, int deviceType);
bool isHardDisk(int interfaceType, int deviceType);

std::string drivePositionWords(int ideConfiguration); // "master", "slave", "position unknown"
const char *drivePositionName(int ideConfiguration);  // "master", "slave", "unknown"

// 0 also stands for a disk without SMART and for SMART that is not handled, so it never says more than that nothing was
// reported.
std::string smartWords(int smartStatus);

// A level, -1 where the drive did not tell (no such attribute, a figure outside every level, a failed command), or 0,
// which no reading gives but which a saved state may hold.
std::string lifeSpanWords(int level);

// A capacity in MiB in the largest fitting unit, to one decimal place: "931.5 GiB". Below 1 GiB whole MiB.
std::string capacityWords(uint32_t mebibytes);

std::string counted(size_t number, std::string_view what); // "1 controller", "2 controllers"

// For a terminal: blanks at both ends are dropped, and bytes that are no printable ASCII become \xNN, so that a
// device's text can neither break the line nor command the terminal.
std::string printable(std::string_view text);

} // namespace tool
