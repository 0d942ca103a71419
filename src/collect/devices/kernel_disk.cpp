// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/kernel_disk.h"

#include "collect/scsi/scsi_variants.h"
#include "runtime/holders.h"

#include <algorithm>
#include <climits>
#include <cstdio>

using namespace tavstrg;

namespace {

constexpr std::string_view kDev = "/dev/";

} // namespace

bool tavstrg::nodePathOf(std::string_view name, char (&path)[kDiskPathSize])
{
    path[0] = '\0';
    if (name.empty() || name.starts_with('.') || kDev.size() + name.size() >= kDiskPathSize ||
        name.find('/') != std::string_view::npos) {
        return false;
    }
    char *const end = std::replace_copy(name.begin(), name.end(), std::copy(kDev.begin(), kDev.end(), path), '!', '/');
    *end = '\0';
    return true;
}

void tavstrg::readNodePath(const ScsiAddress &address, char (&path)[kDiskPathSize])
{
    char directory[PATH_MAX];
    std::snprintf(directory, sizeof directory, "%s/%d:%d:%d:%d/block", kSysDevices, address.host, address.channel,
                  address.id, address.lun);
    const OpenDirectory entries(directory);
    path[0] = '\0';
    for (const char *name = entries.next(); name != nullptr; name = entries.next()) {
        if (nodePathOf(name, path)) {
            return;
        }
    }
}
