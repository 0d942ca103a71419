// SPDX-License-Identifier: Apache-2.0
// The provider's discovery alone: which SCSI devices and host adapters there are, which of them are managed, and which
// node of /dev is which disk.
//
// usage: compare_discovery DISKS TIMES
// Prints a line for each time, as compare_provider does. Ends with status 1 if it did not find exactly DISKS disks and
// no other device (DISKS 0: any devices). Ends at once without arguments.
#include "compare/stopwatch.h"

#include "collect/collection/collection.h"
#include "collect/devices/disk_names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tavstrg;

namespace {

// Lists all devices and finds the node of each disk.
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
        print(taken);
    }
    return 0;
}
