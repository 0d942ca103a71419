// SPDX-License-Identifier: Apache-2.0
// Alerts about single disks: added, removed, replaced, failing, unreadable, readable again.
//
// Each transition gives one event. The disks of the last pass and the events that are not delivered are in a file of
// their own. A pass first saves the new state together with its events, then hands over one event after the other; its
// letter in the file says that it is being handed over, then that it was accepted. So no event is lost if the process
// is killed. One that was being handed over at that moment is sent again and says so.
#pragma once

#include "collect/disk_list.h"
#include "monitor/disk_changes.h"

namespace tavstrg {

constexpr char kDiskBookFile[] = "/opt/qlm/tavkit_sa/data/tavstrgdisks.dat";

// Compares the disks of a collection with those of the last pass and sends the events. Nothing if the list is not
// filled. What fails is traced and tried again in the next pass. The caller holds g_collectionLock.
void alertDisks(const DiskList &list);

// Forgets what could not be saved, as the end of the process does.
void forgetUnsavedDisks();

// The disks of a collection as they are compared.
SeenDisk seenDisk(const CollectedDisk &disk);

// Id of an event, with its severity in the top two bits.
uint32_t diskEventId(DiskChange change);

// Insertion strings of an event: address; index, vendor, model and firmware; serial number; kernel name; number of the
// event; and for a replacement the serial number of the disk before.
struct DiskEventTexts {
    static constexpr size_t kMost = 6;
    char texts[kMost][320];
    int32_t count;
};
// repeated: it may have been delivered already.
DiskEventTexts diskEventTexts(const DiskEvent &event, bool repeated);

} // namespace tavstrg
