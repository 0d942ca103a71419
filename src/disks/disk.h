// SPDX-License-Identifier: Apache-2.0
// What the disks engine knows about one disk. Plain data of fixed size; zero-filled it is a disk of which nothing is
// known. Texts are terminated, trimmed and printable ASCII. What a disk does not report is absent, not 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tavstrg::disks {

// A value that may be absent. Trivial, so that arrays of disks can be zero-filled and copied as bytes.
template <class T> struct Maybe {
    T value;
    bool known;
    constexpr explicit operator bool() const { return known; }
    constexpr T orElse(T other) const { return known ? value : other; }
    constexpr void set(T now)
    {
        value = now;
        known = true;
    }
};

template <class T> constexpr Maybe<T> someOf(T value)
{
    return {value, true};
}

// How the disk is attached.
enum class Transport : uint8_t { unknown, sata, sas, usb, nvme, virtio, mmc, fibreChannel, iscsi, scsi, xen, pmem };
// The language in which it is asked; none: it takes no commands about its health.
enum class Protocol : uint8_t { none, ata, scsi, nvme };
enum class PowerState : uint8_t {
    unknown,
    active,
    idle,
    standby,  // by its own account: asking it for more would spin it up
    suspended // by the kernel's account: opening its node would resume it
};
enum class HealthState : uint8_t {
    unknown, // nothing that reports health could be asked; the reason says why
    good,
    warning,    // wears out, runs hot or has weak sectors
    failing,    // predicts or reports its failure
    asleep,     // was not asked, so that it sleeps on
    unreadable, // is listed, and does not answer
    off         // its SMART is switched off
};
// What the DiskID is made of, best first.
enum class IdentitySource : uint8_t {
    none,
    worldWideName, // NAA, EUI-64, NGUID or UUID, as the kernel or VPD page 83h has it
    cardIdentity,  // CID of an MMC or SD card
    serialNumber,  // vendor, model and serial number
    place          // no number of its own: where it is attached. Stable only while it stays there
};

struct Health {
    HealthState state;
    char source[32];      // what said so: "SMART status", "NVMe health log"; empty for unknown
    char reason[160];     // in words
    Maybe<int64_t> since; // seconds since 1970 when the state was first seen; by the book
};

// One attribute of ATA SMART (ATA8-ACS, SMART READ DATA). Deprecated by later standards, and what every disk has.
struct AtaAttribute {
    uint8_t id; // 0: no attribute
    uint8_t current;
    uint8_t worst;
    uint16_t flags;
    Maybe<uint8_t> threshold;
    uint64_t raw; // 48 bits
};
constexpr size_t kMostAttributes = 30; // in a page

// What the disk itself reports.
struct Readings {
    PowerState power;
    Maybe<uint32_t> enduranceUsedPercent; // may exceed 100
    Maybe<int32_t> temperatureCelsius;
    Maybe<uint64_t> powerOnHours;
    Maybe<uint64_t> powerCycles;
    Maybe<uint64_t> mediaErrors; // data that could not be corrected
    Maybe<uint64_t> reallocatedSectors;
    Maybe<uint64_t> pendingSectors;
    Maybe<uint32_t> sparePercent; // spare capacity left
    Maybe<uint64_t> bytesRead;
    Maybe<uint64_t> bytesWritten;
    AtaAttribute attributes[kMostAttributes];
    uint32_t attributeCount;
};

constexpr size_t kNameRoom = 32; // kernel names have at most 31 characters (linux/genhd.h, DISK_NAME_LEN)
constexpr size_t kKeptPaths = 8;

struct Disk {
    char id[256];
    char foundId[256]; // by what the kernel alone knows; a disk that answers may have told a better id
    IdentitySource idSource;
    Transport transport;
    Protocol protocol;
    bool hidden;                       // by the kernel: a path of a multipath disk, without a node of its own
    char name[kNameRoom];              // of the path that is asked: "sda"
    char paths[kKeptPaths][kNameRoom]; // of all paths, the asked one first
    uint32_t pathCount;                // may exceed kKeptPaths
    char address[48];                  // "0:0:3:1" of SCSI, "0000:01:00.0" of NVMe, "virtio1", "mmc0:0001"
    char adapter[32];                  // PCI address, or empty
    char queue[kNameRoom];             // what serves one command at a time: "host0", "nvme0"
    char bay[64];                      // enclosure and slot
    char vendor[32];
    char model[64];
    char serial[64];
    char firmware[32];
    char wwid[128]; // as the kernel has it
    Maybe<uint32_t> nvmeNamespace;
    Maybe<uint64_t> sizeBytes;
    Maybe<uint32_t> logicalBlockBytes;
    Maybe<uint32_t> physicalBlockBytes;
    Maybe<bool> rotational;
    Maybe<uint32_t> rotationsPerMinute;
    Readings readings;
    Health health;
    Maybe<int64_t> firstSeen; // seconds since 1970; by the book
    Maybe<int64_t> lastAsked; // when the readings were read
};
static_assert(std::is_trivial_v<Disk> && std::is_standard_layout_v<Disk>);

// The words in which these are printed and stored; never null. Transports are spelt as lsblk does.
const char *nameOf(Transport transport);
const char *nameOf(Protocol protocol);
const char *nameOf(PowerState power);
const char *nameOf(HealthState state);
const char *nameOf(IdentitySource source);

// The state of a word; false, with state unchanged, for a word that is none.
bool healthOfName(const char *name, HealthState &state);

// Sets state, source and reason; source and reason are cut to their fields. since stays.
void setHealth(Health &health, HealthState state, const char *source, const char *reason);

} // namespace tavstrg::disks
