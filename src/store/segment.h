// SPDX-License-Identifier: Apache-2.0
// Each class's records mirrored in one System V shared-memory segment.
#pragma once

#include "records/records.h"
#include "runtime/lock.h"

namespace tavstrg {

// One class's segment. All zero before the first initialisation. Its fields are guarded by g_recordsLock.
struct ShmInfo {
    int32_t shmId;        // from shmget; -1 when there is none
    int32_t shmNum;       // records that the segment was sized for; 0 when there is none
    void *shmAdr;         // last attachment, valid only between attach and detach
    RenewableMutex mutex; // guards the segment; taken only in service mode
    bool storeNewer;      // the store holds records that the segment was not given yet: nothing is read back from it
    bool inBetween; // the old segment is removed, its successor is not there yet: the class has records all the same
    bool lost;      // the class has records and no segment could be made: the store is not saved until there is one
};

} // namespace tavstrg

// Creates the segment of class cid with size bytes under a fresh key file "<keyFileBase><cid>". Returns its id, or -1.
// Does not fill in the entry: its callers store id and count. The interface gives the five parameters.
int shmCreate(const CInfo *cInfo, tavstrg::ShmInfo *shmInfo, const char *keyFileBase, int cid, int size);
// Removes a segment and empties the entry. Returns 0, or -1 if there was none or an argument is missing.
int shmDestroy(const CInfo *cInfo, tavstrg::ShmInfo *shmInfo);

namespace tavstrg {

// Removes the segment that an earlier attempt left, if any, untraced and unlocked.
void shmDiscard(ShmInfo &shmInfo);
// Removes the retired key files that a killed process left: "<keyFileBase><class>.bak.<number>".
void removeRetiredKeys(const char *keyFileBase);

} // namespace tavstrg

// Creates the segments of classes 0 to max inclusive for the store's counts. Returns 0, or -1 with every segment
// destroyed. The interface gives the five parameters.
int shmNew(const CInfo *cInfo, int max, const char *keyFileBase, DatInfo *instSt, tavstrg::ShmInfo *shmSt);
// Copies a class's records into its segment (shmNum records) and back (datNum records), never more than both hold.
// Each returns 0, also if the segment could not be attached; -1 on a missing argument or a lock failure.
int setInstToShm(const CInfo *cInfo, DatInfo *ins, tavstrg::ShmInfo *shm);
int setShmToInst(const CInfo *cInfo, tavstrg::ShmInfo *shm, DatInfo *ins);
// Recreates a class's segment for the new count in ins->datNum, and resizes the record area ins->datAdr, which may be
// null, to that count; added bytes are zero. Returns 0 or -1; if memory is short, the area is gone and the count 0. A
// count of 0 removes the segment and does not change the area. The interface gives the five parameters.
int reallocDatArea(const CInfo *cInfo, const char *keyFileBase, int cid, DatInfo *ins, tavstrg::ShmInfo *shm);
