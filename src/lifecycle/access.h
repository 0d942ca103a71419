// SPDX-License-Identifier: Apache-2.0
// The store's lifecycle as the rest of the provider sees it.
#pragma once

#include "store/store.h"

namespace tavstrg {

// Makes the store lock usable; one that is already in use is left alone. Returns 0 or the error of the initialisation.
int strgInitStoreMutex();

} // namespace tavstrg

// Initialises the store once; safe to call on every request. 0, or -1 when the initialisation failed or another one
// took longer than 30 waits of 100 ms.
int strgInitProvider(const CInfo *cInfo);
// The initialisation itself: 0, or -1.
int strgInitInstance(const CInfo *cInfo);
// Brings one class up to date and hands out its descriptor; read its records under a RecordsReader. 0, or -1.
int strgGetInstance(const CInfo *cInfo, int classId, DatInfo *datInfo);
// The cleanup decision when the broker unloads the provider or stops. May be entered by several threads at once.
CMPIStatus strgCleanUpProvider(const CInfo *cInfo, bool terminating);
