// SPDX-License-Identifier: Apache-2.0
// Which disk is in which bay, as enclosure services and PCI hot-plug slots know it. Read once for all disks.
#pragma once

#include "disks/array.h"
#include "disks/disk.h"
#include "disks/find/attribute.h"

#include <string_view>

namespace tavstrg::disks {

class Bays {
public:
    // Reads the enclosures' components and the PCI slots below sysfs. What cannot be read is left out.
    explicit Bays(const AttributeDirectory &sysfs, const char *sysfsPath);
    // The bay of a SCSI address or of a PCI function; false if none is known.
    bool find(std::string_view address, char (&bay)[sizeof Disk::bay]) const;

private:
    struct Bay {
        char address[48];
        char name[sizeof Disk::bay];
    };
    void readEnclosures(const AttributeDirectory &sysfs, const char *sysfsPath);
    void readEnclosure(const AttributeDirectory &sysfs, const char *sysfsPath, const char *enclosure);
    void readSlots(const AttributeDirectory &sysfs, const char *sysfsPath);
    void add(std::string_view address, const char *format, const char *first, const char *second);

    Array<Bay> bays_; // sorted by address
};

} // namespace tavstrg::disks
