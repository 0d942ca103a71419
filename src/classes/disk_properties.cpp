// SPDX-License-Identifier: Apache-2.0
#include "classes/disk_properties.h"

#include <type_traits>

using namespace tavstrg;
using namespace tavstrg::disks;

namespace {

// How a value of the engine is published: its CMPI type, and how it is put into a value. Times, seconds since 1970, are
// the engine's only signed 64-bit numbers.
template <class T> struct Published;
template <> struct Published<uint16_t> {
    static constexpr CMPIType type = CMPI_uint16;
    static void put(uint16_t number, CMPIValue &value) { value.uint16 = number; }
};
template <> struct Published<uint32_t> {
    static constexpr CMPIType type = CMPI_uint32;
    static void put(uint32_t number, CMPIValue &value) { value.uint32 = number; }
};
template <> struct Published<int32_t> {
    static constexpr CMPIType type = CMPI_sint32;
    static void put(int32_t number, CMPIValue &value) { value.sint32 = number; }
};
template <> struct Published<uint64_t> {
    static constexpr CMPIType type = CMPI_uint64;
    static void put(uint64_t number, CMPIValue &value) { value.uint64 = number; }
};
template <> struct Published<int64_t> {
    static constexpr CMPIType type = CMPI_uint64;
    static void put(int64_t number, CMPIValue &value) { value.uint64 = static_cast<CMPIUint64>(number); }
};
template <> struct Published<bool> {
    static constexpr CMPIType type = CMPI_boolean;
    static void put(bool truth, CMPIValue &value) { value.boolean = truth ? 1 : 0; }
};
template <class T> struct Published<Maybe<T>> : Published<T> {
};
template <class T>
requires std::is_enum_v<T>
struct Published<T> : Published<uint16_t> {
};

template <class T> bool set(const Maybe<T> &from, DiskValue &value)
{
    Published<T>::put(from.value, value.plain);
    return from.known;
}

template <class T>
requires(std::is_enum_v<T> || std::is_arithmetic_v<T>) bool set(T from, DiskValue &value)
{
    Published<T>::put(static_cast<std::conditional_t<std::is_enum_v<T>, uint16_t, T>>(from), value.plain);
    return true;
}

bool set(const char *from, DiskValue &value)
{
    value.text = from;
    return *from != '\0';
}

// Macros, because only these get a field's type and room.
#define TEXT_AS(name, field, key)                                                                                      \
    DiskProperty                                                                                                       \
    {                                                                                                                  \
        name, CMPI_chars, sizeof(Disk{}.field), key,                                                                   \
            [](const PublishedDisk &of, DiskValue &value) { return set(of.disk.field, value); }                        \
    }
#define KEY(name, field) TEXT_AS(name, field, true)
#define TEXT(name, field) TEXT_AS(name, field, false)
#define VALUE(name, field)                                                                                             \
    DiskProperty                                                                                                       \
    {                                                                                                                  \
        name, Published<decltype(Disk{}.field)>::type, 0, false,                                                       \
            [](const PublishedDisk &of, DiskValue &value) { return set(of.disk.field, value); }                        \
    }

constexpr DiskProperty kDiskProperties[] = {
    KEY(kDiskKey, id),
    VALUE("DiskIDSource", idSource),
    VALUE("Transport", transport),
    TEXT("KernelName", name),
    VALUE("PathCount", pathCount),
    TEXT("Address", address),
    TEXT("Adapter", adapter),
    TEXT("Bay", bay),
    TEXT("Vendor", vendor),
    TEXT("Model", model),
    TEXT("SerialNumber", serial),
    TEXT("FirmwareRevision", firmware),
    VALUE("NVMeNamespace", nvmeNamespace),
    VALUE("SizeBytes", sizeBytes),
    VALUE("LogicalBlockBytes", logicalBlockBytes),
    VALUE("PhysicalBlockBytes", physicalBlockBytes),
    VALUE("Rotational", rotational),
    VALUE("RotationsPerMinute", rotationsPerMinute),
    VALUE("PowerState", readings.power),
    VALUE("HealthState", health.state),
    TEXT("HealthSource", health.source),
    TEXT("HealthReason", health.reason),
    VALUE("HealthSinceSeconds", health.since),
    VALUE("EnduranceUsedPercent", readings.enduranceUsedPercent),
    VALUE("SparePercent", readings.sparePercent),
    VALUE("TemperatureCelsius", readings.temperatureCelsius),
    VALUE("PowerOnHours", readings.powerOnHours),
    VALUE("PowerCycles", readings.powerCycles),
    VALUE("MediaErrors", readings.mediaErrors),
    VALUE("ReallocatedSectors", readings.reallocatedSectors),
    VALUE("PendingSectors", readings.pendingSectors),
    VALUE("BytesRead", readings.bytesRead),
    VALUE("BytesWritten", readings.bytesWritten),
    VALUE("FirstSeenSeconds", firstSeen),
    VALUE("LastAskedSeconds", lastAsked),
    {"HardDiskIndex", CMPI_uint16, 0, false,
     [](const PublishedDisk &of, DiskValue &value) {
         set(of.hardDiskIndex, value);
         return of.hardDiskIndex != 0;
     }},
};

#undef TEXT_AS
#undef KEY
#undef TEXT
#undef VALUE

} // namespace

std::span<const DiskProperty> tavstrg::diskProperties()
{
    return kDiskProperties;
}
