// SPDX-License-Identifier: Apache-2.0
// Building of the device tables from the discovery lists. The controller tables come before them.
#pragma once

// Counts, allocates and fills the device tables. Returns 0, or -1 with the tables freed.
int InitDevice();

// Sizes of the tables, from the discovery lists, into the totals and DevNumMib. Returns 0, or -1. They are upper
// bounds.
int GetDeviceTotalNumber();
int GetIDEDeviceTotalNumber();
int GetSCSIDeviceTotalNumber();

// Fills the tables. Returns 0, or -1.
int MakeDeviceTable();
