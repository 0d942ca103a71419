// SPDX-License-Identifier: Apache-2.0
// The nine indexed classes as one family, and a store with records of each, for the tests of their handlers.
#pragma once

#include "classes/instance.h"
#include "support/store_fixture.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace tavstrg;

// Properties of each member of the family.
struct Member {
    int classId;
    const char *cimName;
    InstanceHandler *get;
    InstanceHandler *enumerate;
    InstanceBuilder<void> *build;
    const char *prefix; // of the function names
    const char *classIdName;
    const char *enumClassIdName;
    const char *recordName;
    const char *recordParam;
    std::vector<std::pair<std::string, CMPIType>> properties; // as a client sees them
};

inline const std::vector<std::pair<std::string, CMPIType>> kDeviceProperties = {
    {"Index", CMPI_string}, {"InterfaceType", CMPI_sint16}, {"InterfaceTypeIndex", CMPI_uint16}};

#define MEMBER(Name, Rec)                                                                                              \
    TAV_STRG##Name##GetInstance, TAV_STRG##Name##EnumInstances, buildFrom<Rec, TAV_STRG##Name##SetPropInst>,           \
        "TAV_STRG" #Name

inline const Member kMembers[] = {
    {TAV_CID_STRG_CTRL,
     "TAV_StorageController",
     MEMBER(Ctrl, StrgCtrlRec),
     "TAV_CID_STRG_CTRL",
     "TAV_CID_STRG_CTRL",
     "datCtrl",
     "datctrl",
     {{"Index", CMPI_string},
      {"InterfaceType", CMPI_sint16},
      {"Model", CMPI_string},
      {"InterruptNumber", CMPI_uint16},
      {"Driver", CMPI_string},
      {"DriverVersion", CMPI_string}}},
    {TAV_CID_STRG_SCSI,
     "TAV_StorageSCSIDevice",
     MEMBER(Scsi, StrgScsiRec),
     "TAV_CID_STRG_SCSI",
     "TAV_CID_STRG_SCSI",
     "datScsi",
     "datscsi",
     {{"Index", CMPI_string},
      {"DeviceType", CMPI_sint16},
      {"DeviceTypeIndex", CMPI_uint16},
      {"ControllerIndex", CMPI_uint16},
      {"Bus", CMPI_uint16},
      {"TargetID", CMPI_uint16},
      {"LUN", CMPI_uint16},
      {"Vendor", CMPI_string},
      {"Model", CMPI_string},
      {"FirmwareRevision", CMPI_string},
      {"SerialNumber", CMPI_string}}},
    {TAV_CID_STRG_IDE,
     "TAV_StorageIDEDevice",
     MEMBER(Ide, StrgIdeRec),
     "TAV_CID_STRG_IDE",
     "TAV_CID_STRG_IDE",
     "datIde",
     "datide",
     {{"Index", CMPI_string},
      {"DeviceType", CMPI_sint16},
      {"DeviceTypeIndex", CMPI_uint16},
      {"ControllerIndex", CMPI_uint16},
      {"IDEConfiguration", CMPI_sint16},
      {"Model", CMPI_string},
      {"FirmwareRevision", CMPI_string},
      {"SerialNumber", CMPI_string}}},
    {TAV_CID_STRG_HDD,
     "TAV_StorageHardDisk",
     MEMBER(Hdd, StrgHddRec),
     "TAV_CID_STRG_HDD",
     "TAV_CID_STRG_HDD",
     "datHdd",
     "dathdd",
     {{"Index", CMPI_string},
      {"InterfaceType", CMPI_sint16},
      {"InterfaceTypeIndex", CMPI_uint16},
      {"PNPDeviceID", CMPI_string},
      {"CylindersPerUnit", CMPI_uint32},
      {"TracksPerCylinder", CMPI_uint32},
      {"SectorsPerTrack", CMPI_uint32},
      {"Capacity", CMPI_uint32},
      {"SmartStatus", CMPI_sint16}}},
    {TAV_CID_STRG_CDROM, "TAV_StorageCDROM", MEMBER(Cdrom, StrgDevRec), "TAV_CID_STRG_CDROM", "TAV_CID_STRG_CDROM",
     "datCd", "datcd", kDeviceProperties},
    {TAV_CID_STRG_TAPE, "TAV_StorageTape", MEMBER(Tape, StrgDevRec), "TAV_CID_STRG_TAPE", "TAV_CID_STRG_TAPE",
     "datTape", "dattap", kDeviceProperties},
    {TAV_CID_STRG_OPTM, "TAV_StorageOpticalMemory", MEMBER(OptMem, StrgDevRec), "TAV_CID_STRG_OPTM",
     "TAV_CID_STRG_OPTM", "datOptm", "datoptm", kDeviceProperties},
    {TAV_CID_STRG_MISC, "TAV_StorageMisc", MEMBER(Misc, StrgDevRec), "TAV_CID_STRG_MISC", "TAV_CID_STRG_MISC",
     "datMisc", "datmisc", kDeviceProperties},
    {TAV_CID_STRG_LIFE,
     "TAV_StorageLifeSpan",
     MEMBER(LifeSpan, StrgLifeRec),
     "TAV_CID_STRG_LIFE",
     "TAV_CID_STRG_LifeSpan",
     "datLifeSpan",
     "datlifespan",
     {{"Index", CMPI_string}, {"HDDIndex", CMPI_sint16}, {"EnduranceRemaining", CMPI_sint16}}},
};

#undef MEMBER

class Indexed : public ServedStore {
protected:
    // Records of a class with these indices; every field has a distinct value.
    void fill(int classId, const std::vector<uint16_t> &indices)
    {
        const ClassDesc &desc = kClasses[classId];
        std::vector<uint8_t> bytes(desc.recordSize * indices.size());
        for (size_t i = 0; i < indices.size(); ++i) {
            uint8_t *const record = bytes.data() + i * desc.recordSize;
            for (const FieldDesc &field : desc.fields) {
                if (field.key) {
                    std::memcpy(record + field.offset, &indices[i], sizeof indices[i]);
                } else if (field.type == CMPI_chars) {
                    const std::string text = textOf(field, indices[i]);
                    std::memcpy(record + field.offset, text.c_str(), text.size() + 1);
                } else {
                    const int64_t number = numberOf(field, indices[i]);
                    std::memcpy(record + field.offset, &number, field.size);
                }
            }
        }
        switch (desc.recordSize) {
        case sizeof(StrgCtrlRec):
            putBytes<StrgCtrlRec>(classId, bytes);
            break;
        case sizeof(StrgScsiRec):
            putBytes<StrgScsiRec>(classId, bytes);
            break;
        case sizeof(StrgIdeRec):
            putBytes<StrgIdeRec>(classId, bytes);
            break;
        case sizeof(StrgHddRec):
            putBytes<StrgHddRec>(classId, bytes);
            break;
        default:
            putBytes<StrgDevRec>(classId, bytes);
        }
    }
    template <class Rec> void putBytes(int classId, const std::vector<uint8_t> &bytes)
    {
        std::vector<Rec> records(bytes.size() / sizeof(Rec));
        std::memcpy(records.data(), bytes.data(), bytes.size());
        put<Rec>(classId, records);
    }
    static std::string textOf(const FieldDesc &field, int index)
    {
        const std::string text = std::to_string(index) + " " + field.name;
        return text.substr(0, field.size - 1u);
    }
    // Negative in signed fields, so that a lost sign is detected.
    static int64_t numberOf(const FieldDesc &field, int index)
    {
        return field.type == CMPI_sint16 ? -index - field.offset : 1000 * index + field.offset;
    }

    broker::Reply get(const Member &member, const std::vector<broker::NamedValue> &keys,
                      const std::vector<std::string> *properties = nullptr)
    {
        broker::Request request(broker, member.cimName, keys);
        if (properties != nullptr) {
            request.setProperties(*properties);
        }
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(member.get(&cInfo, request.result(), request.path(), request.properties()));
    }
    broker::Reply get(const Member &member, const std::string &index)
    {
        return get(member, {{"Index", broker::Value::text(index)}});
    }
    broker::Reply enumerate(const Member &member)
    {
        broker::Request request(broker, member.cimName);
        const CInfo cInfo = {broker.handle(), request.context()};
        return request.reply(member.enumerate(&cInfo, request.result(), request.path(), request.properties()));
    }
    std::string getName(const Member &member) { return std::string(member.prefix) + "GetInstance"; }
    std::string enumName(const Member &member) { return std::string(member.prefix) + "EnumInstances"; }
    std::string buildName(const Member &member) { return std::string(member.prefix) + "SetPropInst"; }
    static const Member &hardDisk() { return kMembers[3]; }
    static const Member &lifeSpan() { return kMembers[8]; }
};
