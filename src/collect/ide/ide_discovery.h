// SPDX-License-Identifier: Apache-2.0
// IDE discovery from /proc/ide.
#pragma once

#include <cstdint>

namespace tavstrg {

struct IDEControllerInfo {
    int32_t channel; // 65535 when unknown
    char name[64];   // "ide0"
    char model[64];  // also the bus text, "pci" and the like
    int32_t deviceCount;
    char mate[64];
    IDEControllerInfo *next;
};

struct IDEDeviceInfo {
    char controllerName[32]; // before the first "/" of the link's target
    char media[64];
    char model[64];
    char driver[64];
    char driverVersion[64];
    int32_t cylinders;
    int32_t heads;
    int32_t sectors;    // per track
    int64_t capacity;   // sectors of 512 bytes from procfs; see capacityInMiB
    bool capacityInMiB; // the kernel's fallback answers in MiB
    int32_t cache;
    char name[64]; // "hda"
    IDEDeviceInfo *next;
};

struct IDEGeneralInfo {
    int32_t controllerCount;
    int32_t deviceCount;
    IDEControllerInfo *controllers;
    IDEDeviceInfo *devices;
};

} // namespace tavstrg

// Fills the block. Returns 0, also where there is no /proc/ide, or -1 with the block empty.
int GetIDEInfoFromProc(tavstrg::IDEGeneralInfo *info);
void FreeIDEInfo(tavstrg::IDEGeneralInfo *info);
