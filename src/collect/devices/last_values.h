// SPDX-License-Identifier: Apache-2.0
// What was last read of each disk, kept by what the kernel tells the disk by, in the memory of the process.
#pragma once

#include "collect/devices/disk_activity.h"
#include "collect/devices/serial_number.h"
#include "devcmd/hard_disk.h"

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace tavstrg {

// The values of a disk's records that only the disk knows.
struct LastValues {
    char serial[kSerialNumberSize];
    uint64_t cylinders;
    uint64_t heads;
    uint64_t sectors;  // per track
    uint64_t capacity; // MiB
    int16_t predict;   // SmartPredict
    bool smartAsked;   // whether it comes from the disk: the SMART mode was 1
    bool wearKnown;
    uint16_t wear; // figure of the attribute that the endurance table names
};

// The entry's part of the values, and back.
void takeFromEntry(LastValues &values, const HardDiskEntry &entry);
void putIntoEntry(const LastValues &values, HardDiskEntry &entry);

struct DiskKey {
    char identity[kIdentitySize]; // as readKernelIdentity gives it
    ScsiAddress address;          // one disk can be reached at several, each with counts of its own
};

// What is remembered of one disk.
struct DiskMemory {
    LastValues values;
    bool valuesRead;       // else the values mean nothing
    uint8_t withoutAnswer; // how often in a row its verdict or its geometry could not be read
    bool countsRead;
    IoCounts counts; // when it was last asked, or last found asleep
};

// What is known of a disk that is being asked.
struct KeptDisk {
    DiskKey key;
    bool leftAlone;        // whether the values below stand for its answers
    bool valuesKnown;      // else the disk was never asked
    LastValues values;     // of a disk that is not left alone: as far as it has answered
    uint8_t withoutAnswer; // as in DiskMemory, so far
};

// The memory of all disks. Threads may use it at the same time; nothing is read or traced while its lock is held.
class LastValuesTable {
public:
    static constexpr size_t kDisks = 1024; // room; a disk more is asked as if it were new

    // What is remembered of a disk. False, with memory unchanged, if nothing is.
    bool recall(const DiskKey &key, DiskMemory &memory);
    // The same by identity alone: the values of a disk that has moved. False for an empty identity, too.
    bool recallMoved(const DiskKey &key, LastValues &values);
    void remember(const DiskKey &key, const DiskMemory &memory);
    void forget(const DiskKey &key);
    void clear();

private:
    struct Slot {
        DiskKey key;
        DiskMemory memory;
        uint64_t used; // when it was last used; 0: free
    };

    Slot *find(const DiskKey &key);
    // A free slot, or that of a disk that has not been seen for some passes; null if there is neither.
    Slot *freeSlot();

    std::mutex lock_;
    uint64_t now_ = 0; // counts uses
    size_t slots_ = 0; // in use or used before
    Slot slot_[kDisks] = {};
};

extern LastValuesTable g_lastValues;

} // namespace tavstrg
