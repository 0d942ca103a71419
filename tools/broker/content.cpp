// SPDX-License-Identifier: Apache-2.0
// Conversion of stored values to the values that a reader gets.

#include "broker/objects.h"

namespace broker {

namespace {

template <class Kind, class Data, class Table>
std::unique_ptr<Kind> objectFor(Table &table, const std::shared_ptr<const Data> &content)
{
    return std::make_unique<Kind>(table, *content);
}

struct ContentMaker {
    Core &core;
    CMPIData &data;

    std::unique_ptr<Object> operator()(CMPIUint64 word) const
    {
        data.value.uint64 = word;
        return nullptr;
    }
    std::unique_ptr<Object> operator()(const std::string &text) const
    {
        auto made = std::make_unique<StringObject>(core.tables.string, text);
        data.value.string = made.get();
        return made;
    }
    std::unique_ptr<Object> operator()(const std::shared_ptr<const PathData> &path) const
    {
        auto made = objectFor<PathObject>(core.tables.path, path);
        data.value.ref = made.get();
        return made;
    }
    std::unique_ptr<Object> operator()(const std::shared_ptr<const InstanceData> &instance) const
    {
        auto made = objectFor<InstanceObject>(core.tables.instance, instance);
        data.value.inst = made.get();
        return made;
    }
    std::unique_ptr<Object> operator()(const std::shared_ptr<const ArrayData> &array) const
    {
        auto made = objectFor<ArrayObject>(core.tables.array, array);
        data.value.array = made.get();
        return made;
    }
    std::unique_ptr<Object> operator()(const std::shared_ptr<const TimeData> &time) const
    {
        auto made = objectFor<TimeObject>(core.tables.time, time);
        data.value.dateTime = made.get();
        return made;
    }
};

} // namespace

std::unique_ptr<Object> contentObject(Core &core, const Datum &datum, CMPIData &data)
{
    data = {};
    data.type = datum.type;
    data.state = datum.null ? CMPI_nullValue : CMPI_goodValue;
    std::unique_ptr<Object> made;
    if (!datum.null) {
        made = std::visit(ContentMaker{core, data}, datum.content);
    } else if (datum.type == CMPI_string) {
        // A NULL text is a string object without a text, as in the real broker.
        auto nothing = std::make_unique<StringObject>(core.tables.string, std::nullopt);
        data.value.string = nothing.get();
        made = std::move(nothing);
    }
    if (made != nullptr) {
        made->core = &core;
    }
    return made;
}

Object *anyObject(Core &core, const void *pointer)
{
    // Every object begins with its handle and table.
    struct Head {
        void *hdl;
        const void *ft;
    };
    const void *const table = static_cast<const Head *>(pointer)->ft;
    void *const object = const_cast<void *>(pointer);
    if (table == &core.tables.string) {
        return objectOf(static_cast<CMPIString *>(object));
    }
    if (table == &core.tables.array) {
        return objectOf(static_cast<CMPIArray *>(object));
    }
    if (table == &core.tables.enumeration) {
        return objectOf(static_cast<CMPIEnumeration *>(object));
    }
    if (table == &core.tables.instance) {
        return objectOf(static_cast<CMPIInstance *>(object));
    }
    if (table == &core.tables.path) {
        return objectOf(static_cast<CMPIObjectPath *>(object));
    }
    if (table == &core.tables.args) {
        return objectOf(static_cast<CMPIArgs *>(object));
    }
    if (table == &core.tables.time) {
        return objectOf(static_cast<CMPIDateTime *>(object));
    }
    if (table == &core.tables.context) {
        return objectOf(static_cast<CMPIContext *>(object));
    }
    if (table == &core.tables.result) {
        return objectOf(static_cast<CMPIResult *>(object));
    }
    return nullptr;
}

} // namespace broker
