// SPDX-License-Identifier: Apache-2.0
// The broker's objects. Each begins with the structure that a provider sees.
#pragma once

#include "broker/core.h"

namespace broker {

struct StringObject final : CMPIString, Object {
    StringObject(CMPIStringFT &table, const std::optional<std::string> &text);
    ~StringObject() override;
    StringObject(const StringObject &) = delete;
    StringObject &operator=(const StringObject &) = delete;
    std::string describe() const override;
    void dropContent() override;
    const char *text() const { return static_cast<const char *>(hdl); }

private:
    std::unique_ptr<char[]> text_; // null-terminated; null if there is no text
    size_t size_ = 0;
};

struct ArrayObject final : CMPIArray, Object {
    ArrayObject(CMPIArrayFT &table, ArrayData given);
    std::string describe() const override;
    void dropContent() override;
    // An element. Its object belongs to the array and is the same at each call.
    CMPIData elementAt(CMPICount index);
    void set(CMPICount index, Datum datum);

    ArrayData held;

private:
    std::vector<std::unique_ptr<Object>> parts_; // objects of the elements, made when they are read
    std::vector<CMPIData> seen_;                 // values that point to them
};

struct EnumerationObject final : CMPIEnumeration, Object {
    EnumerationObject(CMPIEnumerationFT &table, CMPIArrayFT &arrayTable, ArrayData given, Core &maker);
    std::string describe() const override;
    void dropContent() override;
    std::unique_ptr<Object> giveUp() override { return std::move(array); }

    std::unique_ptr<ArrayObject> array; // null after the provider has released it
    mutable CMPICount cursor = 0;
};

struct InstanceObject final : CMPIInstance, Object {
    InstanceObject(CMPIInstanceFT &table, InstanceData given);
    std::string describe() const override;
    void dropContent() override { held = {}; }
    InstanceData held;
};

struct PathObject final : CMPIObjectPath, Object {
    PathObject(CMPIObjectPathFT &table, PathData given);
    std::string describe() const override { return pathText(held); }
    void dropContent() override { held = {}; }
    PathData held;
};

struct ArgsObject final : CMPIArgs, Object {
    ArgsObject(CMPIArgsFT &table, NamedData given);
    std::string describe() const override { return "arguments"; }
    void dropContent() override { held = NamedData{}; }
    NamedData held;
};

struct TimeObject final : CMPIDateTime, Object {
    TimeObject(CMPIDateTimeFT &table, TimeData given);
    std::string describe() const override { return timeText(held); }
    void dropContent() override {}
    TimeData held;
};

struct ContextObject final : CMPIContext, Object {
    ContextObject(CMPIContextFT &table, NamedData given);
    std::string describe() const override { return "context"; }
    void dropContent() override {}
    NamedData held;
};

struct ResultObject final : CMPIResult, Object {
    explicit ResultObject(CMPIResultFT &table);
    std::string describe() const override { return "result"; }
    void dropContent() override {}
    std::vector<Instance> instances;
    std::vector<Value> data;
    bool done = false;
};

// The object behind a provider's pointer. A pointer that is not one of the broker's objects cannot be recognised.
inline StringObject *objectOf(const CMPIString *string)
{
    return static_cast<StringObject *>(const_cast<CMPIString *>(string));
}
inline ArrayObject *objectOf(const CMPIArray *array)
{
    return static_cast<ArrayObject *>(const_cast<CMPIArray *>(array));
}
inline EnumerationObject *objectOf(const CMPIEnumeration *enumeration)
{
    return static_cast<EnumerationObject *>(const_cast<CMPIEnumeration *>(enumeration));
}
inline InstanceObject *objectOf(const CMPIInstance *instance)
{
    return static_cast<InstanceObject *>(const_cast<CMPIInstance *>(instance));
}
inline PathObject *objectOf(const CMPIObjectPath *path)
{
    return static_cast<PathObject *>(const_cast<CMPIObjectPath *>(path));
}
inline ArgsObject *objectOf(const CMPIArgs *args)
{
    return static_cast<ArgsObject *>(const_cast<CMPIArgs *>(args));
}
inline TimeObject *objectOf(const CMPIDateTime *time)
{
    return static_cast<TimeObject *>(const_cast<CMPIDateTime *>(time));
}
inline ContextObject *objectOf(const CMPIContext *context)
{
    return static_cast<ContextObject *>(const_cast<CMPIContext *>(context));
}
inline ResultObject *objectOf(const CMPIResult *result)
{
    return static_cast<ResultObject *>(const_cast<CMPIResult *>(result));
}

// Makes the object through which a reader gets a value that is not plain, and sets data. Returns null for a plain value
// or NULL.
std::unique_ptr<Object> contentObject(Core &core, const Datum &datum, CMPIData &data);

// The object behind any pointer, recognised by its table; null if it is not one of this broker's.
Object *anyObject(Core &core, const void *pointer);

// The slots of each kind of object.
CMPIStringFT stringTable(int version);
CMPIArrayFT arrayTable(int version);
CMPIEnumerationFT enumerationTable(int version);
CMPIInstanceFT instanceTable(int version);
CMPIObjectPathFT pathTable(int version);
CMPIArgsFT argsTable(int version);
CMPIDateTimeFT timeTable(int version);
CMPIContextFT contextTable(int version);
CMPIResultFT resultTable(int version);
CMPIBrokerFT brokerTable(unsigned version);
CMPIBrokerEncFT encapsulatedTable(int version);
CMPIBrokerExtFT extendedTable(int version);

// A new instance of a class.
InstanceData freshInstance(const Core &core, const PathData &path);

// release of all kinds of object.
template <class Kind> CMPIStatus releaseSlot(Kind *object)
{
    auto *const released = objectOf(object);
    Call call(*released->core, "release");
    return call.core().release(*released);
}

inline void setStatus(CMPIStatus *status, int rc)
{
    if (status != nullptr) {
        *status = {static_cast<CMPIrc>(rc), nullptr};
    }
}

} // namespace broker
