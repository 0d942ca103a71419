// SPDX-License-Identifier: Apache-2.0
// Disks of AHCI, virtio-scsi, MegaRAID and LSI adapters together, with all lines of options.inf: every one is listed,
// with the serial number that sg_inq reads.
#include "vm/checks.h"
#include "vm/inventory.h"
#include "vm/session.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace vm {
namespace {

// All adapters managed. Serial numbers are those of VPD page 80h, or what the kernel has where a disk has no such page.
Facts factsOfAllAdapters()
{
    Facts facts = readFacts();
    facts.managed.insert(facts.managed.end(), kDriversWithOtherDisks.begin(), kDriversWithOtherDisks.end());
    for (Device &device : facts.devices) {
        if (device["kind"] == "disk") {
            device.facts["serial"] = device["page80"].empty() ? device["wwid"] : device["page80"];
        }
    }
    return facts;
}

size_t disksOf(const Facts &facts, const std::string &driver)
{
    return static_cast<size_t>(std::count_if(facts.devices.begin(), facts.devices.end(), [&](const Device &device) {
        return facts.drivers.at(device.host) == driver && !device["serial"].empty() &&
               device["serial"] == device["page80"];
    }));
}

} // namespace

void adapters()
{
    const Facts facts = factsOfAllAdapters();
    for (const char *const driver : {"ahci", "virtio_scsi", "megaraid_sas", "mptsas"}) {
        check(std::string("a disk of ") + driver + " has a page 80h", true, disksOf(facts, driver) > 0);
    }
    writeStorageInf(kDriversWithOtherDisks);
    {
        Session session;
        check("without the lines there is no inventory", 0, hardDisks(*session));
    }
    std::ofstream(kOptionsFile) << "all\n";
    {
        Session session;
        compareInventory(*session, facts, "all adapters");
    }
    std::filesystem::remove(kOptionsFile);
}

} // namespace vm
