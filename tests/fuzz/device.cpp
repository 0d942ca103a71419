// SPDX-License-Identifier: Apache-2.0
// A whole disk whose replies are the input: every command of a collection. The first byte selects the kind of disk and
// the transport of the commands; fuzz/disk.h describes the rest.
#include "collect/devices/disk_names.h"
#include "collect/devices/serial_number.h"
#include "devcmd/geometry.h"
#include "devcmd/smart/smart_watch.h"
#include "devcmd/smart/wear.h"
#include "devcmd/transport/transport.h"
#include "fuzz/disk.h"
#include "fuzz/fuzz.h"
#include "runtime/field_text.h"

using namespace tavstrg;

using fuzz::require;

namespace {

// A block of its own, so that a write beyond the entry is found.
std::unique_ptr<HardDiskEntry> newEntry(unsigned kind)
{
    auto entry = std::make_unique<HardDiskEntry>();
    copyText(entry->DevPath, fuzz::Disk::kNode);
    entry->DevKind = static_cast<uint16_t>(kind);
    entry->SmartSupport = 1;
    return entry;
}

void requireSoundEntry(const HardDiskEntry &entry)
{
    require(fieldText(entry.DevPath) == fuzz::Disk::kNode, "the path stays");
    require(entry.DevKind <= kDevKindSata, "a kind is one of three");
    require(entry.SmartPredict >= -1 && entry.SmartPredict <= 1, "a prediction is one of three");
    require(entry.SmartSupport >= 1 && entry.SmartSupport <= 3, "support is one of three");
    require(entry.SmartEnableState == 0 || entry.SmartEnableState == 2 || entry.SmartEnableState == 3,
            "an enable state is one of three");
}

void checkSerial()
{
    const std::unique_ptr<char[]> serial(new char[kSerialNumberSize]);
    if (TAVStorageGetSCSIDeviceSerialNumber(fuzz::Disk::kNode, serial.get()) == 0) {
        require(std::memchr(serial.get(), '\0', kSerialNumberSize) != nullptr, "a serial number is terminated");
    }
}

void checkGeometry(HardDiskEntry &entry)
{
    StrgGeoInfo geo{};
    if (GetGeoFromKernel(fuzz::Disk::kNode, &geo) == 0) {
        require(geo.heads != 0 && geo.sectors != 0, "a geometry has heads and sectors");
    }
    GetSCSIHDGeometry(fuzz::Disk::kNode, &entry);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Disk disk({data, size});
    const unsigned choice = disk.feed().byte();
    const std::unique_ptr<HardDiskEntry> entry = newEntry(choice % 3);
    use_sg_io = (choice / 3) % 2 == 0 ? 1 : 0;
    g_SmartMode = 1;
    checkSerial();
    checkGeometry(*entry);
    if (choice / 6 % 2 == 0) {
        fetch_sata_type(entry.get());
    }
    TAVStorageSmartWatch(entry.get());
    requireSoundEntry(*entry);
    uint16_t endurance = 0;
    GetLifeSpanInfoIoctl(fuzz::Disk::kNode, static_cast<uint8_t>(choice), &endurance);
    return 0;
}
