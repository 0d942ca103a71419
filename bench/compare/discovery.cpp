// SPDX-License-Identifier: Apache-2.0
// The provider's discovery alone: which SCSI devices and host adapters there are, which of them are managed, and which
// node of /dev is which disk.
//
// usage: compare_discovery DISKS TIMES
// Prints for each time the seconds of CPU time and on the clock that it took, those of the simulated machine taken off,
// and ends with status 1 when it has not found so many disks and nothing else (DISKS 0: whatever there is). Without
// arguments it ends at once.
#include "compare/stopwatch.h"

#include "collect/collection/collection.h"
#include "collect/devices/disk_names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tavstrg;

namespace {

// All devices on the list, the disks with their nodes' names.
bool discover(SCSIDiskNameTable &names)
{
    if (GetSCSIAndIDEInfoListFromProc() != 0 || GetSCSIDeviceName_IDArray(collection().g_SCSIDeviceInfo, &names) != 1) {
        return false;
    }
    for (const SCSIDeviceInfo *device = collection().g_SCSIDeviceInfo; device != nullptr; device = device->next) {
        char name[kDiskNameSize] = "";
        const bool named = TAVStorageGetSCSIDeviceName(&names, device, name) == 0 && name[0] != '\0';
        if (!named && std::strcmp(device->type, "Direct-Access") == 0) {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        return argc == 1 ? 0 : 1;
    }
    const int disks = static_cast<int>(std::strtol(argv[1], nullptr, 10));
    const int times = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    for (int i = 0; i < times; ++i) {
        const Collection inventory;
        const compare::Stopwatch watch;
        SCSIDiskNameTable names;
        const bool done = discover(names);
        const int32_t found = collection().g_SCSIDeviceTotalNumber;
        FreeSCSIAndIDEInfoListFromProc();
        const compare::Taken taken = watch.taken();
        if (!done || (disks != 0 && (found != disks || names.count != disks))) {
            std::fprintf(stderr, "compare_discovery: %d devices found\n", found);
            return 1;
        }
        std::printf("%.9f %.9f\n", taken.cpuSeconds, taken.wallSeconds);
    }
    return 0;
}
