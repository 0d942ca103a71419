// SPDX-License-Identifier: Apache-2.0
// "noscsi.inf": disks that the administrator leaves out of the inventory, by vendor and model.
#pragma once

#include "collect/inf/noscsi_inf_parse.h"

#include <cstdint>

namespace tavstrg {

constexpr char kNoScsiInf[] = "noscsi.inf";

// One entry; at most one of the two texts is empty.
struct NoSCSIInfo {
    char vendor[kMaxNoScsiKey + 1];
    char model[kMaxNoScsiKey + 1];
    NoSCSIInfo *next;
};

} // namespace tavstrg

// Builds the lists of the two sections, each in the reverse of the file's order; either pointer may be null, not both.
// 1 when they were built, *status 0; otherwise 0 with the lists empty and *status 1 (absent, too large or unusable:
// nothing is left out), -3 (no list asked for) or -9.
int CreateNoSCSIInfoTable(tavstrg::NoSCSIInfo **managementList, tavstrg::NoSCSIInfo **diagnosticList, int32_t *status);
// The functions with five parameters below have the system's signatures.

// Vendor and model of one line. Returns 0, or -1 when it has none. The sizes are characters: each text holds one byte
// more.
int ParseVendorandModel(const char *line, char *vendor, int vendorSize, char *model, int modelSize);
// Both keys of a line. Returns 0, or -1 when either cannot be read. Sizes as above.
int GetNoSCSIInfo(const char *line, char *vendor, int vendorSize, char *model, int modelSize);
// Puts a node at the head; one with both texts empty, and one that cannot be allocated, is dropped.
void AddNoSCSITable(tavstrg::NoSCSIInfo **list, const char *vendor, const char *model);
// Value of a key of a text, trimmed, up to the stop text when one is given. Returns 1, or 0. value holds size + 1
// bytes.
int FindString(const char *text, const char *key, char *value, int size, const char *stop);

// 1 when a device is on the list (not watched); 0 when it is not, also for a null text.
int TAVStorageNoManage(const tavstrg::NoSCSIInfo *list, const char *vendor, const char *model);

// Frees every node and nulls the list.
void DestroyNoManageSCSIInfoTable(tavstrg::NoSCSIInfo **list);
