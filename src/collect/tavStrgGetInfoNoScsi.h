// "noscsi.inf": disks that the administrator leaves out of the inventory, by vendor and model.
#pragma once

#include <cstdint>

// One entry; at most one of the two texts is empty.
struct NoSCSIInfo {
    char vendor[65];
    char model[65];
    NoSCSIInfo *next;
};

extern NoSCSIInfo *pleafNoSCSI_Tbl; // the list that the device-table builder works with; lives for one build

// Builds the lists of the two sections, each in the reverse of the file's order; either pointer may be null, not both.
// 1 when they were built; otherwise 0 with the lists empty and *status 1 (absent or unusable: nothing is left out),
// -3 (no list asked for) or -9.
int CreateNoSCSIInfoTable(NoSCSIInfo **managementList, NoSCSIInfo **diagnosticList, int32_t *status);

// 1 when a device is on the list (not watched); 0 when it is not, also for a null text.
int TAVStorageNoManage(const NoSCSIInfo *list, const char *vendor, const char *model);

// Frees every node and nulls the list.
void DestroyNoManageSCSIInfoTable(NoSCSIInfo **list);
