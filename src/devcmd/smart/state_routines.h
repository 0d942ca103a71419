// SPDX-License-Identifier: Apache-2.0
// The steps of watchSmartState for each kind of disk. Each opens DevPath and closes it again.
#pragma once

#include "devcmd/hard_disk.h"

namespace tavstrg {

constexpr uint64_t kSupportUnknown = 1; // SmartSupport
constexpr uint64_t kSupported = 2;
constexpr uint64_t kNotSupported = 3;
constexpr uint64_t kStateNotRead = 0; // SmartEnableState
constexpr uint64_t kFoundEnabled = 2;
constexpr uint64_t kFoundDisabled = 3;

struct StateRoutines {
    // Sets SmartSupport and SmartEnableState by what the disk reports. Returns whether SMART may be switched on.
    bool (*fetch)(HardDiskEntry &disk);
    // Sets SmartSupport to kSupported if SMART is on then.
    void (*enable)(HardDiskEntry &disk);
    // Sets SmartPredict if the disk gives a verdict, else SmartSupport to kSupportUnknown.
    void (*get)(HardDiskEntry &disk);
    void (*disable)(HardDiskEntry &disk);
};

extern const StateRoutines kScsiStateRoutines; // DevKind 0
extern const StateRoutines kSataStateRoutines; // DevKind 2

} // namespace tavstrg
