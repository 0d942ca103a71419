// SPDX-License-Identifier: Apache-2.0
// The fixed sequence of one collection.
#pragma once

// Discovery lists, controller tables, device tables, in this order: 0 when all of them stand, else -1.
int DllMain();

// Frees the device tables, the discovery lists and the controller tables; any of them may be free already.
void freeCollection();
