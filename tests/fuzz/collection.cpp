// SPDX-License-Identifier: Apache-2.0
// A whole collection with SMART on, on a machine of SCSI hosts and IDE channels. The input is the content of some of
// its files: the administrator's three, the kernel's two lists, and attributes of a disk. The records are always sound.
#include "collect/collector.h"
#include "endurance/endurance.h"
#include "fuzz/fuzz.h"
#include "fuzz/machine.h"
#include "store/arrays.h"

#include <span>

using namespace tavstrg;

using fuzz::require;

namespace {

constexpr char kMachine[] = R"({"kernel": "6.1.0", "hosts": [
    {"number": 0, "driver": "ahci", "devices": [
        {"ata": true, "model": "DISK ONE", "serial": "S1", "smart": {"attributes": [{"id": 230, "raw": [0, 7]}]}},
        {"id": 1, "type": "cdrom", "model": "DVD"}]},
    {"number": 1, "driver": "mptspi", "devices": [
        {"ata": true, "model": "DISK TWO", "serial": "S2", "smart": {"failing": true}},
        {"id": 1, "type": "tape"}, {"id": 2, "type": "optical"}, {"id": 3, "type": "changer"}]}],
    "ide": {"channels": [{"name": "ide0"}], "drives": [
        {"name": "hda", "model": "IDE DISK", "serial": "S3"}, {"name": "hdb", "media": "cdrom"}]}})";

constexpr const char *kFiles[] = {
    "/opt/qlm/tavkit_sa/data/storage.inf",
    "/opt/qlm/tavkit_sa/data/noscsi.inf",
    "/opt/qlm/tavkit_sa/data/tavm2ssd.inf",
    "/proc/interrupts",
    "/proc/ioports",
    "/sys/bus/scsi/devices/0:0:0:0/model",
    "/sys/bus/scsi/devices/0:0:0:0/type",
    "/sys/class/scsi_host/host0/proc_name",
    "/proc/ide/ide0/model",
    "/proc/ide/ide0/hda/geometry",
    "/proc/ide/ide0/hda/media",
};

// An index of records is 1-based and has no gaps; texts end within their fields.
void checkClass(const ClassDesc &desc, const DatInfo &dat)
{
    require(dat.datNum >= 0 && (dat.datNum == 0) == (dat.datAdr == nullptr), "a class has records or none");
    for (int32_t i = 0; i < dat.datNum; ++i) {
        const auto *record = static_cast<const char *>(dat.datAdr) + static_cast<size_t>(i) * dat.datSize;
        for (const FieldDesc &field : desc.fields) {
            if (field.key) {
                require(fieldNumber(field, record) == i + 1, "records are numbered in their order");
            } else if (field.type == CMPI_chars) {
                require(std::memchr(record + field.offset, '\0', field.size) != nullptr,
                        "a text ends within its field");
            }
        }
    }
}

template <class Rec> std::span<const Rec> recordsOf(const DatInfo *records, int classId)
{
    const DatInfo &dat = records[classId];
    return {static_cast<const Rec *>(dat.datAdr), static_cast<size_t>(dat.datNum)};
}

// What points back to another record points at one that is there.
void checkLinks(const DatInfo *records)
{
    const size_t scsi = recordsOf<StrgScsiRec>(records, TAV_CID_STRG_SCSI).size();
    const size_t ide = recordsOf<StrgIdeRec>(records, TAV_CID_STRG_IDE).size();
    const size_t disks = recordsOf<StrgHddRec>(records, TAV_CID_STRG_HDD).size();
    const auto isThere = [scsi, ide](int16_t interface, uint16_t index) {
        return index >= 1 && index <= (interface == 0 ? scsi : ide);
    };
    for (const StrgHddRec &disk : recordsOf<StrgHddRec>(records, TAV_CID_STRG_HDD)) {
        require(isThere(disk.InterfaceType, disk.InterfaceTypeIndex), "a disk has its device");
        require(disk.SmartStatus >= -1 && disk.SmartStatus <= 1, "a prediction is one of three");
    }
    for (const int id : {TAV_CID_STRG_CDROM, TAV_CID_STRG_TAPE, TAV_CID_STRG_OPTM, TAV_CID_STRG_MISC}) {
        for (const StrgDevRec &device : recordsOf<StrgDevRec>(records, id)) {
            require(isThere(device.InterfaceType, device.InterfaceTypeIndex), "a class's device has its device");
        }
    }
    for (const StrgLifeRec &life : recordsOf<StrgLifeRec>(records, TAV_CID_STRG_LIFE)) {
        require(life.HDDIndex >= 1 && static_cast<size_t>(life.HDDIndex) <= disks, "a life span has its disk");
        require(life.EnduranceRemaining == -1 || (life.EnduranceRemaining >= 1 && life.EnduranceRemaining <= 5),
                "a level is one of five");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static fuzz::FuzzedMachine machine(kMachine);
    fuzz::Parts parts({data, size});
    for (const char *const path : kFiles) {
        machine.file(path, parts.next());
    }
    g_M2SSDCnt = 0;
    strgGetInfFile();
    OwnedRecords records;
    if (strgGetCurrentInfo(1, records.dat) == 0) {
        for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
            checkClass(kClasses[id], records.dat[id]);
        }
        checkLinks(records.dat);
    }
    machine.requireAllClosed();
    return 0;
}
