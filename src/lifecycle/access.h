// SPDX-License-Identifier: Apache-2.0
// The store's lifecycle as the rest of the provider sees it.
#pragma once

#include "store/store.h"

namespace tavstrg {

// Initialises the store lock unless it is in use already. Returns 0, or the error of the initialisation.
int strgInitStoreMutex();

// Whether a class without records is one without devices. It is not while a stop or a cleanup frees the store, but it
// is while a monitoring thread runs on a store that was freed before it was started. The caller holds g_recordsLock.
bool strgEmptyIsKnown();

} // namespace tavstrg

// Initialises the store once; safe to call on every request. Returns 0, or -1 if the initialisation failed or another
// one took longer than 30 waits of 100 ms.
int strgInitProvider(const CInfo *cInfo);
// The initialisation itself. Returns 0 or -1.
int strgInitInstance(const CInfo *cInfo);
// Brings one class up to date and returns its descriptor; read its records under a RecordsReader. Returns 0 or -1.
int strgGetInstance(const CInfo *cInfo, int classId, DatInfo *datInfo);
// Decides what a cleanup saves, frees and stops. May be entered by several threads at once.
CMPIStatus strgCleanUpProvider(const CInfo *cInfo, bool terminating);
