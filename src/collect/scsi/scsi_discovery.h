// SPDX-License-Identifier: Apache-2.0
// SCSI discovery: devices and host adapters as the kernel shows them in sysfs, or in procfs before 2.6.
#pragma once

#include <cstdint>

namespace tavstrg {

// One device, in discovery order. Texts are as the kernel gave them.
struct SCSIDeviceInfo {
    int32_t sequence; // 0-based position in the list
    int32_t host;
    char vendor[64];
    char model[64];
    char scsiRev[64];
    char type[64]; // "Direct-Access" and the like; "Unknown"
    char ansiRev[64];
    int32_t channel;
    int32_t id;
    int32_t lun;
    SCSIDeviceInfo *next;
};

// One managed host adapter: 72 bytes. A driver name of 64 characters is kept whole.
struct SCSIHostEntry {
    int32_t host;
    char driver[65];
};
static_assert(sizeof(SCSIHostEntry) == 72);

// Distinct drivers of the managed host adapters, in the order in which they are met.
struct SCSIControllerTypeDetail {
    char driver[65];
    int32_t adapters; // managed adapters of this driver
    SCSIControllerTypeDetail *next;
};

struct USBHostEntry {
    int32_t host;
    char name[65];
};

// Statuses of the list builders.
constexpr int32_t kSourceAbsent = 1;     // tolerated: there is nothing to read
constexpr int32_t kSourceError = -1;     // not opened or not listed
constexpr int32_t kSourceTruncated = -2; // a record of /proc/scsi/scsi stops half-way
constexpr int32_t kSourceNull = -3;
constexpr int32_t kSourceNoMemory = -9;

} // namespace tavstrg

// Which interface the kernel has: 0 procfs, 1 sysfs. Decided once for the life of the process.
int select_proc_or_sys();

// Builders: 0, or negative with *status as above and the list empty. Lists are freed with the functions below.
int GetSCSIDeviceInfoFromProc(tavstrg::SCSIDeviceInfo **list, int32_t *count, int32_t *status);
int GetSCSIControllerTypeDetailInfo(tavstrg::SCSIControllerTypeDetail **list, int32_t *typeCount,
                                    int32_t *controllerCount, int32_t *status);
// Number of managed host adapters; -1 on failure.
int GetSCSIControllerNumber();
// Managed host adapters into *list (one block, memfree), *count entries. Returns 0, or -1 with the list null.
int read_proc_scsi(tavstrg::SCSIHostEntry **list, int32_t *count);
// USB host adapters into *list (one block, memfree), *count entries. Returns 0, or -1 with the list null.
int TAVStorageGetUSBCtrl(tavstrg::USBHostEntry **list, int32_t *count);

void FreeSCSIDeviceInfo(tavstrg::SCSIDeviceInfo **list);
void FreeSCSIControllerTypeDetailInfo(tavstrg::SCSIControllerTypeDetail **list);
