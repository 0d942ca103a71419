// SPDX-License-Identifier: Apache-2.0
// The provider's codes and numbers in words, and texts made fit to be printed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tool {

// Interface codes of controllers, hard disks and the device classes.
constexpr int kScsi = 0;
constexpr int kIde = 1;

// Codes of IDEConfiguration.
constexpr int kIdeMaster = 2;
constexpr int kIdeSlave = 3;

// SMART states of a hard disk beside 0.
constexpr int kFailurePredicted = 1;
constexpr int kStatusNotReadable = -1;

// What is known of a disk's SMART verdict. A SmartStatus of 0 alone does not say which of the others it is.
enum class Smart {
    unconfirmed, // 0, and nothing shows whether the disk was asked and answered
    good,        // asked, and no failure predicted
    failing,
    notReadable,  // asked, and no verdict obtained
    notAsked,     // SMART handling is off, or the disk is an IDE disk, which is never asked
    notSupported, // the disk has no SMART
    unknownCode,
};

// Remaining endurance goes from 1 (least) to 5 (most).
constexpr int kMostEndurance = 5;
constexpr int kLifeSpanNotRead = -1;

std::string interfaceWords(int interfaceType); // "SCSI", "IDE", "unknown interface"

// Kind of a device by its DeviceType. SCSI and IDE devices have codes of their own, which overlap.
std::string deviceTypeWords(int interfaceType, int deviceType);
bool isHardDisk(int interfaceType, int deviceType);

std::string drivePositionWords(int ideConfiguration); // "master", "slave", "position unknown"
const char *drivePositionName(int ideConfiguration);  // "master", "slave", "unknown"

std::string smartWords(Smart smart);     // "good", "FAILURE PREDICTED", "not readable", ...
const char *smartName(Smart smart);      // for JSON: "good", "failing", "notReadable", ...
const char *smartLabel(Smart smart);     // for metrics: "good", "failing", "not_readable", ...
std::span<const Smart> allSmartStates(); // that a known code can mean

// A level; -1 where no level could be read (no such attribute, a figure outside every level, a failed command); or 0,
// which no reading gives but which a saved state may hold.
std::string lifeSpanWords(int level);

// A capacity in MiB in the largest fitting unit, to one decimal place: "931.5 GiB". Below 1 GiB whole MiB.
std::string capacityWords(uint32_t mebibytes);

std::string counted(size_t number, std::string_view what); // "1 controller", "2 controllers"

constexpr std::string_view kBlanks = " \t\r\n";

// Without the blanks (or whatever characters are given) at both ends.
std::string_view trimmed(std::string_view text, std::string_view blanks = kBlanks);

// ASCII only: names of classes and columns have no other letters, and the result must not depend on the locale.
char lower(char c);
bool sameIgnoringCase(std::string_view one, std::string_view other);

// Every text that is not the tool's own (of devices, files, arguments, the provider) is printed through this function:
// trimmed, and bytes that are not printable ASCII as \xNN, so that it can neither break the line nor control the
// terminal. Text beyond ASCII is escaped too: a terminal that does not expect UTF-8 takes parts of it for controls.
std::string printable(std::string_view text);

// Whether a text of the provider says something: not empty, "Unknown" or "Not Supported" (without regard to blanks at
// its ends).
bool saysSomething(std::string_view text);

} // namespace tool
