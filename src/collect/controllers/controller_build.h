// SPDX-License-Identifier: Apache-2.0
// Building of the controller tables from the discovery lists.
#pragma once

#include "collect/collection/controller_tables.h"
#include "collect/ide/ide_discovery.h"
#include "collect/scsi/scsi_discovery.h"

#include <string_view>

// Counts, allocates and fills the controller tables. Returns 0, or -1; FreeControllerTable then frees what was
// allocated.
int InitController();

// Counts into CtrlNumMib and allocates. Returns 0, or -1.
int GetControllerTotalNumber();
int GetControllerNumber();
int GetIDEControllerNumber_Leaf();
int GetSCSIControllerNumber_Leaf();

// Fills the tables. Returns 0, or -1.
int GetController();

// Order of two SCSIHostEntry for qsort: by host number, ascending.
int _CmpControllerTid(const void *left, const void *right);

// The i-th controller (0-based), which is in pCtrlTbl already, into the tables of its kind. Returns 0, or -1.
int MakeSCSIController(int32_t i, const tavstrg::SCSIHostEntry &host);
int MakeSCSIControllerDriver(int32_t i, const tavstrg::SCSIHostEntry &host);
int MakeIDEController(int32_t i);

// Bus code of an IDE controller: 2 "isa", 3 "eisa", 4 "pci", 1 any other text.
uint16_t GetIDEControllerBusType(std::string_view bus);
// Interrupt and port ranges of an IDE channel into its entry. Returns 0, or -1 when the kernel's list cannot be read.
int GetControllerInterrupt(const char *channelName, tavstrg::ControllerEntry *entry);
int GetControllerPort(const char *channelName, tavstrg::ControllerEntry *entry);

namespace tavstrg {

// An entry of each kind, with what is the same for all of its kind. The unknown kind is for a controller that is
// counted but is on neither list.
ControllerEntry newSCSIController(int32_t i, int32_t host);
ControllerEntry newIDEController(int32_t i, int32_t position, int32_t channel);
ControllerEntry newUnknownController(int32_t i);

// Number in an IDE channel's name, "ide0". Returns true, or false if the name is not of that form.
bool parseIDEChannelName(const char *name, int32_t *channel);

} // namespace tavstrg
