// SPDX-License-Identifier: Apache-2.0
// Wear figure of a solid-state drive, from its SMART attributes.
#pragma once

#include <cstdint>

// Reads the figure of an attribute: 0, also when the drive does not have the attribute, which leaves *endurance as it
// was; -1 when an argument is missing (null, attID 0), the device does not open or the command is not carried. The SCSI
// and ATA status of the command are not looked at.
int GetLifeSpanInfoIoctl(const char *devName, uint8_t attID, uint16_t *endurance);
