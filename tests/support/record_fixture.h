// SPDX-License-Identifier: Apache-2.0
// Records made by hand: filled into descriptors, read back from them, and a sample of every class.
#pragma once

#include "store/arrays.h"

#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

using namespace tavstrg;

// The record as bytes.
template <class Rec> std::span<uint8_t> bytesOfRecord(Rec &record)
{
    return {reinterpret_cast<uint8_t *>(&record), sizeof record};
}

// Replaces a descriptor's array by one of these records.
template <class Rec> void fill(DatInfo &dat, const std::vector<Rec> &records)
{
    void *area = nullptr;
    if (!records.empty()) {
        area = std::calloc(records.size(), sizeof(Rec));
        std::memcpy(area, records.data(), records.size() * sizeof(Rec));
    }
    dat.datSize = sizeof(Rec);
    replaceRecords(dat, static_cast<int32_t>(records.size()), area);
}

template <class Rec> std::vector<Rec> recordsIn(const DatInfo &dat)
{
    const auto *const first = static_cast<const Rec *>(dat.datAdr);
    return first == nullptr ? std::vector<Rec>() : std::vector<Rec>(first, first + dat.datNum);
}

inline StrgScsiRec scsiRecord(uint16_t index, const char *model)
{
    StrgScsiRec record = {};
    record.Index = record.DeviceTypeIndex = record.TargetID = index;
    std::strcpy(record.Vendor, "ATA");
    std::strcpy(record.Model, model);
    std::strcpy(record.FirmwareRevision, "FW01");
    std::strcpy(record.SerialNumber, ("SERIAL-" + std::to_string(index)).c_str());
    return record;
}

// Every class with some records, the fifth and the seventh with none.
inline void fillSample(DatInfo *records)
{
    strgInitDatInfo(records);
    fill<StrgConfRec>(records[TAV_CID_STRG_CONF], {{60, 10, 3600, 60, 1, 0}});
    fill<StrgTnumRec>(records[TAV_CID_STRG_TNUM], {{1, 2, 1, 3, 0, 1, 0, 1, 2, 0}});
    StrgCtrlRec controller = {};
    controller.Index = 1;
    controller.InterfaceType = -1;
    std::strcpy(controller.Model, "ahci");
    controller.InterruptNumber = 65535;
    std::strcpy(controller.Driver, "ahci");
    std::strcpy(controller.DriverVersion, "3.0");
    fill<StrgCtrlRec>(records[TAV_CID_STRG_CTRL], {controller});
    fill<StrgScsiRec>(records[TAV_CID_STRG_SCSI], {scsiRecord(1, "ONE"), scsiRecord(2, "TWO")});
    StrgIdeRec ide = {};
    ide.Index = ide.DeviceTypeIndex = 1;
    ide.DeviceType = ide.IDEConfiguration = 2;
    ide.ControllerIndex = 65535;
    std::strcpy(ide.Model, "IDE DISK");
    std::strcpy(ide.FirmwareRevision, "A1");
    std::strcpy(ide.SerialNumber, "IDE-1");
    fill<StrgIdeRec>(records[TAV_CID_STRG_IDE], {ide});
    fill<StrgHddRec>(records[TAV_CID_STRG_HDD], {{1, 0, 1, 0, "", 130, 255, 63, 1024, 0, 0},
                                                 {2, 0, 2, 0, "", 261, 255, 63, 2048, 1, 0},
                                                 {3, 1, 1, 0, "", 5221, 16, 63, 0x80000000U, -1, 0}});
    fill<StrgDevRec>(records[TAV_CID_STRG_TAPE], {{1, 0, 3, 0}});
    fill<StrgDevRec>(records[TAV_CID_STRG_MISC], {{1, 1, 2, 0}});
    fill<StrgLifeRec>(records[TAV_CID_STRG_LIFE], {{1, 1, 5, 0}, {2, 2, -1, 0}});
}
