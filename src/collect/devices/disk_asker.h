// SPDX-License-Identifier: Apache-2.0
// What the walk over the devices asks about a disk, and how that is found out.
#pragma once

#include "collect/devices/disk_names.h"
#include "collect/devices/kernel_disk.h"
#include "collect/devices/last_values.h"
#include "devcmd/hard_disk.h"
#include "devcmd/open_device.h"
#include "runtime/options.h"

#include <cstdint>

namespace tavstrg {

// A wear figure that was read before it was asked for.
struct WearReading {
    uint8_t attribute; // 0: none was read
    int result;        // 0, or -1
    uint16_t figure;   // unchanged by a drive without the attribute
};

// A disk that is being asked.
struct AskedDisk {
    ScsiAddress address;
    char path[kDiskPathSize]; // of its node; empty if no node is known
    int error;                // errno of what showed that it cannot be asked; else 0
    char vendor[64];          // as the kernel shows it
    char model[64];           // the same; empty without a vendor
    WearReading worn;
    KeptDisk kept;
};

// A disk of the discovery list before anything about it is known. Its path is empty.
AskedDisk askedDisk(const SCSIDeviceInfo &device);

// How one collection asks disks.
struct DiskMethods {
    NodeUse nodes; // how nodes are opened
    // Serial number into serial (kSerialNumberSize bytes). 0, or -1, which fails the inventory.
    int32_t (*serialNumber)(AskedDisk &disk, char *serial);
    // Geometry, size, kind and SMART state into an entry that has the disk's path. 0, or -1, which fails the inventory.
    int (*describe)(AskedDisk &disk, HardDiskEntry &entry);
    // Wear figure of a SMART attribute. 0, or -1.
    int (*wear)(AskedDisk &disk, uint8_t attribute, uint16_t *figure);
};

// Without any option: a disk that does not answer fails the inventory, and its SMART is off if a command fails.
extern const DiskMethods kStrictMethods;

// The methods that the options ask for.
//   disk-identity: a disk that does not answer is listed with what the kernel knows about it, its SmartPredict is -1,
//     and it is named in the trace.
//   smart-state: watchSmartState handles SMART, and nodes are opened for reading alone.
//   sleeping-disks: a disk that is left alone (sleeping_disks.h) is not asked; nodes are opened for reading alone.
const DiskMethods &methodsOf(const Options &options);

constexpr uint16_t kFigureUnknown = 65535; // a wear figure above every level

// Fills in what describe starts from: the path of the node, and a SMART state that is not known.
void beginDescription(HardDiskEntry &entry, const char *path);

// Fills in what the kernel knows about a disk that is not asked.
void describeUnasked(const AskedDisk &disk, HardDiskEntry &entry);

// What the walk asks about one disk after the other. begin comes first, the others are about the disk that it named.
// Without virtual functions, whose type descriptions are in the C++ library.
class DiskAsker {
public:
    DiskAsker(const DiskAsker &) = delete;
    DiskAsker &operator=(const DiskAsker &) = delete;

    // Path of the disk's node into path (kDiskPathSize bytes). 0, or -1.
    int32_t begin(const SCSIDeviceInfo &device, char *path) { return functions_.begin(*this, device, path); }
    // As in DiskMethods.
    int32_t serialNumber(char *serial) { return functions_.serialNumber(*this, serial); }
    int describe(HardDiskEntry &entry) { return functions_.describe(*this, entry); }
    int wear(uint8_t attribute, uint16_t *figure) { return functions_.wear(*this, attribute, figure); }

protected:
    struct Functions {
        int32_t (*begin)(DiskAsker &self, const SCSIDeviceInfo &device, char *path);
        int32_t (*serialNumber)(DiskAsker &self, char *serial);
        int (*describe)(DiskAsker &self, HardDiskEntry &entry);
        int (*wear)(DiskAsker &self, uint8_t attribute, uint16_t *figure);
    };
    explicit DiskAsker(const Functions &functions) : functions_(functions) {}
    ~DiskAsker() = default;

private:
    const Functions &functions_;
};

// Asks each disk when the walk comes to it.
class AskNow final : public DiskAsker {
public:
    AskNow(const DiskNaming &naming, const DiskMethods &methods)
        : DiskAsker(kFunctions), naming_(naming), methods_(methods)
    {
    }
    // For a disk whose path is known: without begin.
    explicit AskNow(const char *path);

private:
    static const Functions kFunctions;

    const DiskNaming naming_;
    const DiskMethods &methods_;
    AskedDisk disk_ = {};
};

} // namespace tavstrg
