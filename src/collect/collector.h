// SPDX-License-Identifier: Apache-2.0
// The inventory collector: one whole snapshot of the machine's storage hardware, mapped to records.
#pragma once

#include "records/records.h"

// Collects a snapshot into the nine classes 2 to 10 of the eleven descriptors; those of configuration and totals stay.
// 0, or -1: all or nothing, but after a failure the caller still frees every non-null array of classes 2 to 10.
// Two collections must never run at once.
int strgGetCurrentInfo(int smartmode, DatInfo *descriptors);

// Discovery lists, controller tables, device tables, in this order, into the current collection: 0 when all of them are
// built, else -1.
int DllMain();
