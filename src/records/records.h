// SPDX-License-Identifier: Apache-2.0
// Class ids, the records behind every answer, and the description of each class from which everything about it derives.
//
// The records are a storage format: they are copied byte for byte into shared memory and the saved-state file.
#pragma once

#include <cmpidt.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

// Index of instSt, shmSt and every per-class table.
enum StrgClassId : int {
    TAV_CID_STRG_CONF = 0,
    TAV_CID_STRG_TNUM = 1,
    TAV_CID_STRG_CTRL = 2,
    TAV_CID_STRG_SCSI = 3,
    TAV_CID_STRG_IDE = 4,
    TAV_CID_STRG_HDD = 5,
    TAV_CID_STRG_CDROM = 6,
    TAV_CID_STRG_TAPE = 7,
    TAV_CID_STRG_OPTM = 8,
    TAV_CID_STRG_MISC = 9,
    TAV_CID_STRG_LIFE = 10,
    TAV_CID_STRG_MAX = 11,
};

struct StrgConfRec {
    uint16_t MonitorCycle;        // seconds
    uint16_t MonitorCycleMin;     // seconds
    uint16_t MonitorCycleMax;     // seconds
    uint16_t MonitorCycleDefault; // seconds
    int16_t HardDiskSmartMode;    // 1 switches SMART handling on
    uint16_t reserved;
};

// Record counts of classes 2 to 10, each cut to its low 16 bits.
struct StrgTnumRec {
    uint16_t ControllerTotalNumber;
    uint16_t SCSIDeviceTotalNumber;
    uint16_t IDEDeviceTotalNumber;
    uint16_t HardDiskTotalNumber;
    uint16_t CDROMTotalNumber;
    uint16_t TapeTotalNumber;
    uint16_t OpticalMemoryTotalNumber;
    uint16_t MiscTotalNumber;
    uint16_t LifeSpanTotalNumber; // deliberate: in the record and the dump, never published
    uint16_t reserved;
};

struct StrgCtrlRec {
    uint16_t Index;        // 1-based
    int16_t InterfaceType; // 0 SCSI, 1 IDE, -1 unknown
    char Model[64];
    uint16_t InterruptNumber; // 65535 when unknown
    uint16_t reserved;
    char Driver[32];
    char DriverVersion[16];
};

struct StrgScsiRec {
    uint16_t Index;           // 1-based
    int16_t DeviceType;       // 0 hard disk, 1 CD-ROM, 2 tape, 3 optical memory, 4 other
    uint16_t DeviceTypeIndex; // 1-based position in its class
    uint16_t ControllerIndex; // 65535 when no controller matched
    uint16_t Bus;
    uint16_t TargetID;
    uint16_t LUN;
    uint16_t reserved;
    char Vendor[32];
    char Model[32];
    char FirmwareRevision[16];
    char SerialNumber[256];
};

struct StrgIdeRec {
    uint16_t Index;           // 1-based
    int16_t DeviceType;       // deliberate: codes of its own, 2 disk, 3 CD-ROM, 1 other
    uint16_t DeviceTypeIndex; // 1-based position in its class
    uint16_t ControllerIndex; // 65535 when no controller matched
    int16_t IDEConfiguration; // drive position: 2 master, 3 slave, 1 unknown
    uint16_t reserved;
    char Model[32];
    char FirmwareRevision[16];
    char SerialNumber[256];
};

struct StrgHddRec {
    uint16_t Index;              // 1-based
    int16_t InterfaceType;       // 0 SCSI, 1 IDE
    uint16_t InterfaceTypeIndex; // Index of the disk's SCSI or IDE device record
    uint16_t reserved;
    char PNPDeviceID[256]; // deliberate: never filled
    uint32_t CylindersPerUnit;
    uint32_t TracksPerCylinder;
    uint32_t SectorsPerTrack;
    uint32_t Capacity;   // MiB
    int16_t SmartStatus; // 0 good, 1 failure predicted, -1 unreadable
    uint16_t padding;    // always 0
};

// CD-ROM, tape, optical memory and other devices.
struct StrgDevRec {
    uint16_t Index;              // 1-based
    int16_t InterfaceType;       // 0 SCSI, 1 IDE
    uint16_t InterfaceTypeIndex; // Index of the device's SCSI or IDE device record
    uint16_t reserved;
};

struct StrgLifeRec {
    uint16_t Index; // 1-based
    int16_t HDDIndex;
    int16_t EnduranceRemaining; // level 1 (least left) to 5; -1 not yet read
    uint16_t reserved;
};

namespace tavstrg {

// Codes of fields that more than one floor reads or writes.
constexpr int16_t kInterfaceScsi = 0; // InterfaceType
constexpr int16_t kInterfaceIde = 1;
constexpr int16_t kSmartModeOn = 1; // HardDiskSmartMode

template <class Rec, size_t Size>
constexpr bool isStoredRecord =
    sizeof(Rec) == Size &&std::is_trivial_v<Rec> &&std::is_standard_layout_v<Rec>
                       &&std::has_unique_object_representations_v<Rec>; // no hidden padding: safe to compare

static_assert(isStoredRecord<StrgConfRec, 12> && isStoredRecord<StrgTnumRec, 20> && isStoredRecord<StrgCtrlRec, 120> &&
              isStoredRecord<StrgScsiRec, 352> && isStoredRecord<StrgIdeRec, 316> && isStoredRecord<StrgHddRec, 284> &&
              isStoredRecord<StrgDevRec, 8> && isStoredRecord<StrgLifeRec, 8>);
static_assert(offsetof(StrgConfRec, MonitorCycle) == 0 && offsetof(StrgConfRec, MonitorCycleMin) == 2 &&
              offsetof(StrgConfRec, MonitorCycleMax) == 4 && offsetof(StrgConfRec, MonitorCycleDefault) == 6 &&
              offsetof(StrgConfRec, HardDiskSmartMode) == 8 && offsetof(StrgConfRec, reserved) == 10);
static_assert(offsetof(StrgTnumRec, ControllerTotalNumber) == 0 && offsetof(StrgTnumRec, SCSIDeviceTotalNumber) == 2 &&
              offsetof(StrgTnumRec, IDEDeviceTotalNumber) == 4 && offsetof(StrgTnumRec, HardDiskTotalNumber) == 6 &&
              offsetof(StrgTnumRec, CDROMTotalNumber) == 8 && offsetof(StrgTnumRec, TapeTotalNumber) == 10 &&
              offsetof(StrgTnumRec, OpticalMemoryTotalNumber) == 12 && offsetof(StrgTnumRec, MiscTotalNumber) == 14 &&
              offsetof(StrgTnumRec, LifeSpanTotalNumber) == 16 && offsetof(StrgTnumRec, reserved) == 18);
static_assert(offsetof(StrgCtrlRec, Index) == 0 && offsetof(StrgCtrlRec, InterfaceType) == 2 &&
              offsetof(StrgCtrlRec, Model) == 4 && offsetof(StrgCtrlRec, InterruptNumber) == 68 &&
              offsetof(StrgCtrlRec, reserved) == 70 && offsetof(StrgCtrlRec, Driver) == 72 &&
              offsetof(StrgCtrlRec, DriverVersion) == 104);
static_assert(offsetof(StrgScsiRec, Index) == 0 && offsetof(StrgScsiRec, DeviceType) == 2 &&
              offsetof(StrgScsiRec, DeviceTypeIndex) == 4 && offsetof(StrgScsiRec, ControllerIndex) == 6 &&
              offsetof(StrgScsiRec, Bus) == 8 && offsetof(StrgScsiRec, TargetID) == 10 &&
              offsetof(StrgScsiRec, LUN) == 12 && offsetof(StrgScsiRec, reserved) == 14 &&
              offsetof(StrgScsiRec, Vendor) == 16 && offsetof(StrgScsiRec, Model) == 48 &&
              offsetof(StrgScsiRec, FirmwareRevision) == 80 && offsetof(StrgScsiRec, SerialNumber) == 96);
static_assert(offsetof(StrgIdeRec, Index) == 0 && offsetof(StrgIdeRec, DeviceType) == 2 &&
              offsetof(StrgIdeRec, DeviceTypeIndex) == 4 && offsetof(StrgIdeRec, ControllerIndex) == 6 &&
              offsetof(StrgIdeRec, IDEConfiguration) == 8 && offsetof(StrgIdeRec, reserved) == 10 &&
              offsetof(StrgIdeRec, Model) == 12 && offsetof(StrgIdeRec, FirmwareRevision) == 44 &&
              offsetof(StrgIdeRec, SerialNumber) == 60);
static_assert(offsetof(StrgHddRec, Index) == 0 && offsetof(StrgHddRec, InterfaceType) == 2 &&
              offsetof(StrgHddRec, InterfaceTypeIndex) == 4 && offsetof(StrgHddRec, reserved) == 6 &&
              offsetof(StrgHddRec, PNPDeviceID) == 8 && offsetof(StrgHddRec, CylindersPerUnit) == 264 &&
              offsetof(StrgHddRec, TracksPerCylinder) == 268 && offsetof(StrgHddRec, SectorsPerTrack) == 272 &&
              offsetof(StrgHddRec, Capacity) == 276 && offsetof(StrgHddRec, SmartStatus) == 280 &&
              offsetof(StrgHddRec, padding) == 282);
static_assert(offsetof(StrgDevRec, Index) == 0 && offsetof(StrgDevRec, InterfaceType) == 2 &&
              offsetof(StrgDevRec, InterfaceTypeIndex) == 4 && offsetof(StrgDevRec, reserved) == 6);
static_assert(offsetof(StrgLifeRec, Index) == 0 && offsetof(StrgLifeRec, HDDIndex) == 2 &&
              offsetof(StrgLifeRec, EnduranceRemaining) == 4 && offsetof(StrgLifeRec, reserved) == 6);

} // namespace tavstrg

// Records of one class: the store has eleven, indexed by class id; a collection fills an array of the same shape.
struct DatInfo {
    uint32_t datSize; // bytes of one record
    int32_t datNum;   // records in the array; 0 when there are none
    void *datAdr;     // datNum * datSize bytes; null when datNum is 0. Owned by the owner of the descriptor.
};

namespace tavstrg {

// The records of a descriptor that no other thread changes meanwhile: a collection's, or the store's under
// g_recordsLock.
template <class Rec> std::span<Rec> recordsOf(const DatInfo &dat)
{
    if (dat.datAdr == nullptr || dat.datNum <= 0) {
        return {};
    }
    return {static_cast<Rec *>(dat.datAdr), static_cast<size_t>(dat.datNum)};
}

} // namespace tavstrg

// Sets the eleven descriptors to their initial values: sizes, one record each for configuration and totals, no arrays.
void strgInitDatInfo(DatInfo *datInfo);

namespace tavstrg {

// Where a field of a record is shown.
enum FieldUse : uint8_t {
    kPublished = 1, // a property of the class
    kDumped = 2,    // a line of the trace dump
    kBoth = kPublished | kDumped,
};

struct FieldDesc {
    const char *name; // record field, property and dump line have one name
    CMPIType type;    // type with which the property is set; the field's own width follows from it
    uint16_t offset;  // bytes from the start of the record
    uint16_t size;    // bytes of the field
    uint8_t use;      // FieldUse
    bool key;         // the key Index: a number in the record, published as text
};

struct ClassDesc {
    int id; // StrgClassId
    const char *cimName;
    uint32_t recordSize;               // bytes
    std::span<const FieldDesc> fields; // in the order in which properties are set and lines are dumped
};

// Description of each class, indexed by class id.
extern const ClassDesc kClasses[TAV_CID_STRG_MAX];

// Bytes of the longest published text field, with its terminator.
constexpr size_t kLongestText = sizeof(StrgScsiRec::SerialNumber);

// Numeric field of a record, sign- or zero-extended by its type.
int64_t fieldNumber(const FieldDesc &field, const void *record);
// Text field of a record. Records are always terminated.
const char *fieldChars(const FieldDesc &field, const void *record);

} // namespace tavstrg
