// SPDX-License-Identifier: Apache-2.0
// The host adapters that sysfs shows, with their drivers' names: read once in a collection and kept until its end, so
// that all that is asked of them agrees and is read once.
#pragma once

#include "collect/base/attribute.h"
#include "runtime/holders.h"

#include <cstdint>
#include <optional>

namespace tavstrg {

// One entry of /sys/class/scsi_host.
struct SysHost {
    bool isHost;          // its name is that of a host adapter; the rest is zero if not
    int32_t host;         // number
    AttributeText driver; // first line of "proc_name"
    char driverWord[65];  // first word of "proc_name"
};

class SysHosts {
public:
    SysHosts() = default;
    ~SysHosts() { clear(); }
    SysHosts(const SysHosts &) = delete;
    SysHosts &operator=(const SysHosts &) = delete;

    // Reads the directory unless that was done. Returns 0, or an errno value, ENOENT if there is no such directory.
    int load();
    int32_t count() const { return hosts_ == nullptr ? 0 : listing_->count(); }
    const SysHost &operator[](int32_t i) const { return hosts_[i]; }
    const char *name(int32_t i) const { return listing_->name(i); }

private:
    void clear();

    std::optional<DirListing> listing_;
    SysHost *hosts_ = nullptr;
};

// The adapters of the current collection; own if there is none.
SysHosts &sysHostsOr(SysHosts &own);
// Makes a list that of the current collection. Returns the one before it.
SysHosts *exchangeSysHosts(SysHosts *hosts);

} // namespace tavstrg
