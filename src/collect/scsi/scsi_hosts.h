// SPDX-License-Identifier: Apache-2.0
// Managed host adapters: one reading serves the number, the list and the list of their drivers, so that these agree.
#pragma once

#include "collect/base/node_list.h"
#include "collect/base/sorted_index.h"
#include "collect/inf/storage_inf.h"
#include "collect/scsi/scsi_discovery.h"

namespace tavstrg {

// The drivers that "storage.inf" names, for one reading.
class ManagedDrivers {
public:
    ManagedDrivers() = default;
    ~ManagedDrivers();
    ManagedDrivers(const ManagedDrivers &) = delete;
    ManagedDrivers &operator=(const ManagedDrivers &) = delete;
    // A file that is absent, unusable or too large names no driver; false on any other failure.
    bool load();
    bool has(const char *driver) const;

private:
    bool index();

    StorageInfo *list_ = nullptr;
    SortedIndex<const char *> names_;
};

using HostArray = GrowingArray<SCSIHostEntry>;

// Appends the managed adapters: 0; kSourceAbsent where the kernel shows no such directory; kSourceError;
// kSourceNoMemory.
using HostReader = int32_t (*)(HostArray &hosts);
int32_t sysReadHosts(HostArray &hosts);
int32_t procReadHosts(HostArray &hosts);

// Appends one adapter: false if memory is short.
bool appendHost(HostArray &hosts, int32_t host, const char *driver);

} // namespace tavstrg

// Appends the adapters in the directory of a driver under /proc/scsi: their number, or kSourceError, kSourceNoMemory.
int proc_GetSCSIControllerNumFromType(const char *driver, tavstrg::HostArray &hosts);

namespace tavstrg {

// Where the list of types goes, as the functions of the discovery have their arguments.
struct HostTypes {
    SCSIControllerTypeDetail **list;
    int32_t *typeCount;
    int32_t *controllerCount;
    int32_t *status;
};

// The three products of a reading, with the contracts of the functions of the discovery that give them.
int countHosts(HostReader reader);
int listHosts(HostReader reader, SCSIHostEntry **list, int32_t *count);
int listHostTypes(HostReader reader, const HostTypes &out);

} // namespace tavstrg
