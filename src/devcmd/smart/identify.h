// SPDX-License-Identifier: Apache-2.0
// The check for the SMART feature set that both ways of enabling SMART of an ATA disk begin with.
#pragma once

#include "devcmd/hard_disk.h"

namespace tavstrg {

// What the block holds when IDENTIFY DEVICE failed and IDENTIFY PACKET DEVICE is sent.
enum class IdentifyRetry { kZeroed, kAsItWas };

// Sends IDENTIFY through HDIO_DRIVE_CMD and sets SmartSupport: 3 without the feature set, 2 with it, 1 when the data do
// not show it or could not be read. Returns whether SMART is to be enabled. Traces under the name of its caller.
bool identifyAllowsSmart(int fd, HardDiskEntry &disk, IdentifyRetry retry);

} // namespace tavstrg
