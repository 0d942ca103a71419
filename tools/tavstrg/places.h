// SPDX-License-Identifier: Apache-2.0
// Where the kernel has each controller and device: host number, H:C:T:L and node, as lsblk, lsscsi and smartctl name
// them. The provider does not publish them; they are read from sysfs and procfs through the provider's own discovery.
#pragma once

#include "tavstrg/inventory.h"

#include <string>
#include <vector>

namespace tool {

constexpr const char *kScsiHosts = "/sys/class/scsi_host";
constexpr const char *kScsiDevices = "/sys/bus/scsi/devices";

struct KernelHost {
    int number = -1;
    std::string driver;
};

struct KernelDevice {
    int host = 0, channel = 0, id = 0, lun = 0;
    std::string vendor, model; // as the kernel gives them, blanks at their ends included
    std::string node;          // "sda", "sr0", "st0", "sg3"; empty when not known
};

struct KernelIdeDrive {
    std::string name; // "hda"
    std::string model;
};

struct KernelView {
    std::vector<KernelHost> hosts;        // SCSI host adapters, also those that are not managed; only from sysfs
    std::vector<KernelHost> managedHosts; // by number, as the provider numbers its controllers
    std::vector<KernelDevice> devices;    // in the order of discovery
    std::vector<KernelIdeDrive> ideDrives;
    std::string storageInf; // path of the file that names the managed drivers
};

// Reads the machine that the process sees, the real or the simulated one. Sends no command to any device and opens no
// node. What cannot be read is left out.
KernelView readKernelView();

// Gives controllers and devices their places. Where inventory and kernel disagree (something was plugged in or out
// between the two readings) or two devices would match, nothing is set: no place is better than a wrong one.
void setPlaces(Inventory &inventory, const KernelView &kernel);

// Why an inventory without controllers and devices is empty; empty text for any other inventory.
std::string emptyWords(const Inventory &inventory, const KernelView &kernel);

} // namespace tool
