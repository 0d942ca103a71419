// SPDX-License-Identifier: Apache-2.0
#include "records/records.h"

#include <algorithm>
#include <cstring>

using namespace tavstrg;

namespace {

template <class T> struct CmpiTypeOf;
template <> struct CmpiTypeOf<uint16_t> {
    static constexpr CMPIType value = CMPI_uint16;
};
template <> struct CmpiTypeOf<int16_t> {
    static constexpr CMPIType value = CMPI_sint16;
};
template <> struct CmpiTypeOf<uint32_t> {
    static constexpr CMPIType value = CMPI_uint32;
};
template <size_t N> struct CmpiTypeOf<char[N]> {
    static constexpr CMPIType value = CMPI_chars;
};

// A macro, because only a macro gets a field's name and offset.
#define FIELD(Rec, f, use)                                                                                             \
    FieldDesc                                                                                                          \
    {                                                                                                                  \
#f, CmpiTypeOf < decltype(Rec::f)> ::value, offsetof(Rec, f), sizeof(Rec::f), use, false                       \
    }
#define KEY(Rec)                                                                                                       \
    FieldDesc                                                                                                          \
    {                                                                                                                  \
        "Index", CMPI_chars, offsetof(Rec, Index), sizeof(Rec::Index), kBoth, true                                     \
    }

constexpr FieldDesc kConfFields[] = {
    FIELD(StrgConfRec, MonitorCycle, kBoth),      FIELD(StrgConfRec, MonitorCycleMin, kBoth),
    FIELD(StrgConfRec, MonitorCycleMax, kBoth),   FIELD(StrgConfRec, MonitorCycleDefault, kBoth),
    FIELD(StrgConfRec, HardDiskSmartMode, kBoth),
};
constexpr FieldDesc kTnumFields[] = {
    FIELD(StrgTnumRec, ControllerTotalNumber, kBoth),    FIELD(StrgTnumRec, SCSIDeviceTotalNumber, kBoth),
    FIELD(StrgTnumRec, IDEDeviceTotalNumber, kBoth),     FIELD(StrgTnumRec, HardDiskTotalNumber, kBoth),
    FIELD(StrgTnumRec, CDROMTotalNumber, kBoth),         FIELD(StrgTnumRec, TapeTotalNumber, kBoth),
    FIELD(StrgTnumRec, OpticalMemoryTotalNumber, kBoth), FIELD(StrgTnumRec, MiscTotalNumber, kBoth),
    FIELD(StrgTnumRec, LifeSpanTotalNumber, kDumped),
};
constexpr FieldDesc kCtrlFields[] = {
    KEY(StrgCtrlRec),
    FIELD(StrgCtrlRec, InterfaceType, kBoth),
    FIELD(StrgCtrlRec, Model, kBoth),
    FIELD(StrgCtrlRec, InterruptNumber, kBoth),
    FIELD(StrgCtrlRec, Driver, kBoth),
    FIELD(StrgCtrlRec, DriverVersion, kBoth),
};
constexpr FieldDesc kScsiFields[] = {
    KEY(StrgScsiRec),
    FIELD(StrgScsiRec, DeviceType, kBoth),
    FIELD(StrgScsiRec, DeviceTypeIndex, kBoth),
    FIELD(StrgScsiRec, ControllerIndex, kBoth),
    FIELD(StrgScsiRec, Bus, kBoth),
    FIELD(StrgScsiRec, TargetID, kBoth),
    FIELD(StrgScsiRec, LUN, kBoth),
    FIELD(StrgScsiRec, Vendor, kBoth),
    FIELD(StrgScsiRec, Model, kBoth),
    FIELD(StrgScsiRec, FirmwareRevision, kBoth),
    FIELD(StrgScsiRec, SerialNumber, kBoth),
};
constexpr FieldDesc kIdeFields[] = {
    KEY(StrgIdeRec),
    FIELD(StrgIdeRec, DeviceType, kBoth),
    FIELD(StrgIdeRec, DeviceTypeIndex, kBoth),
    FIELD(StrgIdeRec, ControllerIndex, kBoth),
    FIELD(StrgIdeRec, IDEConfiguration, kBoth),
    FIELD(StrgIdeRec, Model, kBoth),
    FIELD(StrgIdeRec, FirmwareRevision, kBoth),
    FIELD(StrgIdeRec, SerialNumber, kBoth),
};
constexpr FieldDesc kHddFields[] = {
    KEY(StrgHddRec),
    FIELD(StrgHddRec, InterfaceType, kBoth),
    FIELD(StrgHddRec, InterfaceTypeIndex, kBoth),
    FIELD(StrgHddRec, PNPDeviceID, kPublished), // 256 bytes that are always empty: kept out of the dump
    FIELD(StrgHddRec, CylindersPerUnit, kBoth),
    FIELD(StrgHddRec, TracksPerCylinder, kBoth),
    FIELD(StrgHddRec, SectorsPerTrack, kBoth),
    FIELD(StrgHddRec, Capacity, kBoth),
    FIELD(StrgHddRec, SmartStatus, kBoth),
};
constexpr FieldDesc kDevFields[] = {
    KEY(StrgDevRec),
    FIELD(StrgDevRec, InterfaceType, kBoth),
    FIELD(StrgDevRec, InterfaceTypeIndex, kBoth),
};
constexpr FieldDesc kLifeFields[] = {
    KEY(StrgLifeRec),
    FIELD(StrgLifeRec, HDDIndex, kBoth),
    FIELD(StrgLifeRec, EnduranceRemaining, kBoth),
};

#undef FIELD
#undef KEY

constexpr bool isTextThatFits(const FieldDesc &field)
{
    return field.key || field.type != CMPI_chars || field.size <= kLongestText;
}

template <class T> T readField(const FieldDesc &field, const void *record)
{
    T value;
    std::memcpy(&value, static_cast<const char *>(record) + field.offset, sizeof value);
    return value;
}

} // namespace

constexpr ClassDesc tavstrg::kClasses[TAV_CID_STRG_MAX] = {
    {TAV_CID_STRG_CONF, "TAV_StorageConfig", sizeof(StrgConfRec), kConfFields},
    {TAV_CID_STRG_TNUM, "TAV_StorageTotalNumber", sizeof(StrgTnumRec), kTnumFields},
    {TAV_CID_STRG_CTRL, "TAV_StorageController", sizeof(StrgCtrlRec), kCtrlFields},
    {TAV_CID_STRG_SCSI, "TAV_StorageSCSIDevice", sizeof(StrgScsiRec), kScsiFields},
    {TAV_CID_STRG_IDE, "TAV_StorageIDEDevice", sizeof(StrgIdeRec), kIdeFields},
    {TAV_CID_STRG_HDD, "TAV_StorageHardDisk", sizeof(StrgHddRec), kHddFields},
    {TAV_CID_STRG_CDROM, "TAV_StorageCDROM", sizeof(StrgDevRec), kDevFields},
    {TAV_CID_STRG_TAPE, "TAV_StorageTape", sizeof(StrgDevRec), kDevFields},
    {TAV_CID_STRG_OPTM, "TAV_StorageOpticalMemory", sizeof(StrgDevRec), kDevFields},
    {TAV_CID_STRG_MISC, "TAV_StorageMisc", sizeof(StrgDevRec), kDevFields},
    {TAV_CID_STRG_LIFE, "TAV_StorageLifeSpan", sizeof(StrgLifeRec), kLifeFields},
};

static_assert(std::ranges::all_of(kClasses, [](const ClassDesc &member) {
    return std::ranges::all_of(member.fields, isTextThatFits);
}));

void strgInitDatInfo(DatInfo *datInfo)
{
    for (const ClassDesc &desc : kClasses) {
        const bool single = desc.id == TAV_CID_STRG_CONF || desc.id == TAV_CID_STRG_TNUM;
        datInfo[desc.id] = {desc.recordSize, single ? 1 : 0, nullptr};
    }
}

int64_t tavstrg::fieldNumber(const FieldDesc &field, const void *record)
{
    switch (field.type) {
    case CMPI_sint16:
        return readField<int16_t>(field, record);
    case CMPI_uint32:
        return readField<uint32_t>(field, record);
    default: // uint16, and the key, which is a uint16 in the record
        return readField<uint16_t>(field, record);
    }
}

const char *tavstrg::fieldChars(const FieldDesc &field, const void *record)
{
    return static_cast<const char *>(record) + field.offset;
}
