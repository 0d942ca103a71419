// SPDX-License-Identifier: Apache-2.0
// One collection, and a machine that has something of everything, for the tests of whole collections.
#pragma once

#include "collect/collector.h"
#include "endurance/endurance.h"
#include "sim/sim.h"
#include "support/lists_fixture.h"

#include <cstdlib>
#include <cstring>
#include <set>

using namespace tavstrg;

// The nine classes of a collection, and what their arrays hold.
class Snapshot {
public:
    Snapshot() { strgInitDatInfo(dat); }
    ~Snapshot() { release(); }
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;
    void release()
    {
        for (DatInfo &entry : dat) {
            std::free(entry.datAdr);
            entry.datAdr = nullptr;
        }
    }
    template <class Rec> const Rec &at(int id, int i) const { return static_cast<const Rec *>(dat[id].datAdr)[i]; }
    int count(int id) const { return dat[id].datNum; }

    DatInfo dat[TAV_CID_STRG_MAX];
};

// The endurance table that a machine has while this lives: lines as "MODEL,231,100,80,60,40,20,0\n".
class EnduranceTable {
public:
    EnduranceTable(sim::Machine &machine, const std::string &lines)
    {
        forget();
        machine.write("/opt/qlm/tavkit_sa/data/tavm2ssd.inf", "[Endurance Remaining]\n" + lines);
        strgGetInfFile();
    }
    ~EnduranceTable() { forget(); }
    EnduranceTable(const EnduranceTable &) = delete;
    EnduranceTable &operator=(const EnduranceTable &) = delete;

private:
    static void forget()
    {
        g_M2SSDCnt = 0;
        g_M2SSDEndu = 0;
        std::memset(g_M2SSDInf, 0, sizeof g_M2SSDInf);
    }
};

// Nodes of ATA disks that were sent a SMART command since the log was last forgotten.
inline std::set<std::string> askedForSmart(const sim::Machine &machine)
{
    constexpr uint8_t kPassThrough16 = 0x85; // SAT, ATA PASS-THROUGH (16): the ATA command is its byte 14
    constexpr uint8_t kSmart = 0xB0;
    std::set<std::string> nodes;
    for (const sim::Command &command : machine.commands()) {
        if (command.bytes.size() == 16 && command.bytes[0] == kPassThrough16 && command.bytes[14] == kSmart) {
            nodes.insert(command.device);
        }
    }
    return nodes;
}

// Something of everything, and something of everything that is left out.
inline constexpr char kEverything[] = R"({
  "hosts": [
    {"number": 3, "driver": "ahci", "devices": [
      {"id": 1, "lun": 2, "ata": true, "model": "DISK A", "revision": "R-A", "serial": "SERIAL-A", "identifyWords": {"20": 0}},
      {"id": 2, "type": 5, "vendor": "CDVEND", "model": "CDMODEL", "revision": "CD1"},
      {"id": 3, "type": 3, "vendor": "PROC", "model": "PROCESSOR"}
    ]},
    {"number": 0, "driver": "mptspi", "devices": [
      {"channel": 1, "id": 4, "ata": true, "model": "DISK B", "serial": "SERIAL-B", "identifyWords": {"20": 0},
       "geometry": {"heads": 64, "sectors": 32, "cylinders": 500}, "sizeBytes": 1048576000},
      {"id": 5, "type": 1, "vendor": "TAPEVEND", "model": "TAPE"}
    ]},
    {"number": 5, "driver": "usb-storage", "devices": [{"ata": true, "vendor": "USBVEND"}]},
    {"number": 6, "driver": "virtio_scsi", "devices": [{"vendor": "VIRT"}]},
    {"number": 7, "driver": "ahci", "devices": [{"id": 6, "type": 7, "vendor": "OMVEND", "model": "OPTICAL"}]}
  ],
  "ide": {
    "channels": [{"name": "ide0", "model": "pci"}, {"name": "ide1", "model": "isa"}],
    "drives": [
      {"name": "hda", "media": "disk", "model": "IDE DISK", "driver": "ide-disk", "version": "1.18",
       "geometry": {"heads": 16, "sectors": 63, "cylinders": 16383}, "capacity": 40960000},
      {"name": "hdd", "media": "cdrom", "model": "IDE CDROM", "driver": "ide-cdrom", "version": "4.61"},
      {"name": "hdc", "media": "floppy", "model": "IDE FLOPPY", "driver": "ide-floppy"}
    ]
  },
  "interrupts": "           CPU0\n 14:   7   XT-PIC  ide0\n",
  "ioports": "01f0-01f7 : ide0\n0170-0177 : ide1\n",
  "files": {"storage.inf": "ahci\nmptspi\n"}
})";
