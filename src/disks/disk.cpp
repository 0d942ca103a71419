// SPDX-License-Identifier: Apache-2.0
#include "disks/disk.h"

#include "runtime/field_text.h"

#include <cstring>
#include <iterator>

namespace tavstrg::disks {
namespace {

constexpr const char *kTransports[] = {"unknown", "sata", "sas",   "usb",  "nvme", "virtio",
                                       "mmc",     "fc",   "iscsi", "scsi", "xen",  "pmem"};
constexpr const char *kProtocols[] = {"none", "ata", "scsi", "nvme"};
constexpr const char *kPowerStates[] = {"unknown", "active", "idle", "standby", "suspended"};
constexpr const char *kHealthStates[] = {"unknown", "good", "warning", "failing", "asleep", "unreadable", "off"};
constexpr const char *kIdentitySources[] = {"none", "worldWideName", "cardIdentity", "serialNumber", "place"};

static_assert(std::size(kTransports) == static_cast<size_t>(Transport::pmem) + 1);
static_assert(std::size(kProtocols) == static_cast<size_t>(Protocol::nvme) + 1);
static_assert(std::size(kPowerStates) == static_cast<size_t>(PowerState::suspended) + 1);
static_assert(std::size(kHealthStates) == static_cast<size_t>(HealthState::off) + 1);
static_assert(std::size(kIdentitySources) == static_cast<size_t>(IdentitySource::place) + 1);

template <class Code, size_t N> const char *wordOf(const char *const (&words)[N], Code code)
{
    const auto at = static_cast<size_t>(code);
    return words[at < N ? at : 0];
}

} // namespace

const char *nameOf(Transport transport)
{
    return wordOf(kTransports, transport);
}

const char *nameOf(Protocol protocol)
{
    return wordOf(kProtocols, protocol);
}

const char *nameOf(PowerState power)
{
    return wordOf(kPowerStates, power);
}

const char *nameOf(HealthState state)
{
    return wordOf(kHealthStates, state);
}

const char *nameOf(IdentitySource source)
{
    return wordOf(kIdentitySources, source);
}

bool healthOfName(const char *name, HealthState &state)
{
    for (size_t i = 0; i < std::size(kHealthStates); ++i) {
        if (std::strcmp(name, kHealthStates[i]) == 0) {
            state = static_cast<HealthState>(i);
            return true;
        }
    }
    return false;
}

void setHealth(Health &health, HealthState state, const char *source, const char *reason)
{
    health.state = state;
    copyText(health.source, source);
    copyText(health.reason, reason);
}

} // namespace tavstrg::disks
