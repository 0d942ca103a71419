// SPDX-License-Identifier: Apache-2.0
// What the kernel and independent tools say of the machine, and what follows from it for the inventory.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vm {

struct Device {
    std::string address; // "host:channel:target:lun"
    int host = -1;
    std::map<std::string, std::string> facts; // as documented in oracle.sh

    const std::string &operator[](const std::string &name) const; // empty when the oracle does not know
    uint64_t number(const std::string &name) const;
};

// The drivers that the test manages. The first two are in storage.inf as well, but the inventory never has them.
inline const std::vector<std::string> kNeverManaged = {"usb-storage", "scsi_debug"};
inline const std::vector<std::string> kManaged = {"ahci", "sym53c8xx", "tcm_loopback"};
// A driver with a disk that has no ATA identity.
inline const std::string kDriverWithOtherDisk = "virtio_scsi";
// All drivers with such disks: without disk-identity each of them empties the inventory.
inline const std::vector<std::string> kDriversWithOtherDisks = {kDriverWithOtherDisk, "megaraid_sas", "mptsas"};

struct Facts {
    std::map<int, std::string> drivers; // of the hosts, by number
    std::vector<Device> devices;        // in the order of the kernel's listing
    std::vector<std::string> managed = kManaged;

    const Device &at(const std::string &address) const; // ends the test if it does not exist
};

// The disk that is pulled out and plugged in.
inline const char *const kPlugged = "1:0:0:0";

// What the oracle found before the test began.
Facts readFacts();

// Standard output of a shell command.
std::string outputOf(const std::string &command);

// Commands that the kernel has sent to a device since it found it.
uint64_t requestsTo(const std::string &address);

// Name of the disk at an address, such as "sda"; empty if there is none.
std::string diskAt(const std::string &address);

// Whether the disk answers SMART READ DATA, which it refuses while its SMART is off. (What the emulated disk's identity
// says of it does not change.)
bool smartIsOn(const std::string &address);
void switchSmart(const std::string &address, bool on);

// --- the administrator's files ---------------------------------------------------------------------------------------

// Vendor and model of the disk in noscsi.inf.
inline const std::string kUnwatchedModel = "UNWATCHED";

inline const char *const kOptionsFile = "/opt/qlm/tavkit_sa/data/options.inf";

void writeStorageInf(const std::vector<std::string> &furtherDrivers = {});
void writeNoScsiInf();
void removeNoScsiInf();
void writeEnduranceTable();
// The endurance level that the table gives for a figure.
int enduranceLevel(uint64_t figure);
// First 16 characters of the model that the table has, and the attribute that carries its figure.
inline const std::string kEnduranceModel = "M2SSDMODEL-01234";
inline const std::string kEnduranceAttribute = "190";

} // namespace vm
